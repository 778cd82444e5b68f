# Run by cpack on the packages that it has made: it gives those with a library scripts that call ldconfig, for which
# Debian has the trigger that debian/triggers asks for.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(folder ${package}.unpacked)
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
    if(EXISTS ${folder}/DEBIAN/postinst)
        file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
        execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip --build ${folder} ${package} OUTPUT_QUIET
            COMMAND_ERROR_IS_FATAL ANY)
    endif()
    file(REMOVE_RECURSE ${folder})
endforeach()
