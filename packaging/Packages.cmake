# Debian packages, one for each component that this build installs: `./dev package`.
find_program(DPKG dpkg)
if(NOT DPKG)
    return()
endif()

# package(COMPONENT NAME SECTION SUMMARY DESCRIPTION [DEPENDS]): one package and its documentation.
function(package component name section summary description)
    string(TOUPPER ${component} COMPONENT)
    foreach(setting "PACKAGE_NAME;${name}" "PACKAGE_SECTION;${section}" "PACKAGE_DEPENDS;${ARGN}")
        list(GET setting 0 key)
        list(SUBLIST setting 1 -1 value)
        set(CPACK_DEBIAN_${COMPONENT}_${key} "${value}" PARENT_SCOPE)
    endforeach()
    set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
    set(doc ${CMAKE_CURRENT_BINARY_DIR}/${name})
    file(MAKE_DIRECTORY ${doc})
    configure_file(debian/copyright.in ${doc}/copyright @ONLY)
    configure_file(debian/changelog.in ${doc}/changelog @ONLY)
    execute_process(COMMAND gzip -9nf ${doc}/changelog COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${doc}/copyright ${doc}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
        COMPONENT ${component})
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/${name}.lintian-overrides)
        install(FILES debian/${name}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            COMPONENT ${component} RENAME ${name})
    endif()
endfunction()

# Of the time of the last change, so that the same source makes the same packages.
set(CHANGELOG_DATE "Thu, 01 Jan 1970 00:00:00 +0000")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND date -u -R -d @$ENV{SOURCE_DATE_EPOCH} OUTPUT_VARIABLE CHANGELOG_DATE
        OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

# Headers may need what their library has first; the element needs what debian/symbols has, whatever came after.
set(no_older "libvela-enc-mp1a2 (>= ${PROJECT_VERSION})")
set(any_since "libvela-enc-mp1a2 (>= 2.0.1)")
set(no_licence "\n\nNo licence has been granted yet.")
set(INCLUDED)
package(runtime libvela-enc-mp1a2 libs "MPEG-1 Audio Layer I/II encoder (library)"
    "Encodes PCM as MPEG-1 Audio Layer I or Layer II (ISO/IEC 11172-3), with the
same bytes on every machine.${no_licence}")
package(dev libvela-enc-mp1a-dev libdevel "MPEG-1 Audio Layer I/II encoder (development files)"
    "Headers, the manual page of the function interface, and files for pkg-config
and for CMake's find_package, with the host guide and examples in C++, Python
and Rust.${no_licence}" ${no_older})
if(TARGET velaenc)
    # Libraries that are headers only: their notice goes where their code goes.
    foreach(library CLI11=libcli11-dev "JSON for Modern C++=nlohmann-json3-dev")
        string(REGEX MATCH "(.*)=(.*)" unused "${library}")
        set(notice /usr/share/doc/${CMAKE_MATCH_2}/copyright)
        if(EXISTS ${notice})
            file(READ ${notice} terms)
            string(APPEND INCLUDED "\nThe programs contain code of ${CMAKE_MATCH_1}, whose terms are:\n\n${terms}")
        else()
            message(WARNING "${notice} is missing: packages of this build lack the notice of ${CMAKE_MATCH_1}")
        endif()
    endforeach()
    package(tools velaenc sound "MPEG-1 Audio Layer I/II encoder and inspector (command line)"
        "Encodes audio files as MPEG-1 Audio Layer I or Layer II, with the rules of
VCD, SVCD, DVD, DVB and other target formats, one or whole folders of them.
velainfo tells what is in such a stream and whether it is sound.${no_licence}")
    set(INCLUDED)
endif()
if(TARGET gstvelamp2)
    package(gstreamer gstreamer1.0-velamp2 libs "MPEG-1 Audio Layer I/II encoder (GStreamer element)"
        "The element velamp2enc, which encodes as MPEG-1 Audio Layer I or
Layer II; encodebin finds it by itself.${no_licence}" ${any_since})
endif()
if(TARGET vela_twolame)
    package(twolame libtwolame0-vela libs "MPEG-1 Audio Layer II encoder (drop-in for libtwolame)"
        "A libtwolame.so.0 in a folder of its own, and vela-twolame, which runs ffmpeg,
sox and other programs with it in place of the system's.${no_licence}" ${any_since})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vela-enc-mp1a)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # or every package would begin with the project's
set(CPACK_PACKAGE_CONTACT "${VELA_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
# Folders that no rule names get the mask of whoever makes the packages otherwise.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/folder_permissions.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/no_ldconfig.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/symbols ${CMAKE_CURRENT_SOURCE_DIR}/debian/shlibs
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
