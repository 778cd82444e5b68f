# Run by cpack before it packs what it has installed. CHMOD_RECURSE stops at links that lead to another package.
file(GLOB_RECURSE paths LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(path IN LISTS paths)
    if(IS_DIRECTORY ${path} AND NOT IS_SYMLINK ${path})
        file(CHMOD ${path} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
            WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
