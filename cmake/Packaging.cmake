# SPDX-License-Identifier: Apache-2.0
# What is installed beside the programs and libraries, and `cpack -G DEB`: a package of the command with
# the plugin, one of the demuxer's library, one for building with that.
set(ZOFLV_MAINTAINER "zoflv developers <developers@zoflv.invalid>" CACHE STRING
    "Maintainer field of packages: whoever hands them out")

set(library_package libzoflvdmx${PROJECT_VERSION_MAJOR})
foreach(component command library development)
    if(component STREQUAL "command")
        set(package zoflv)
    elseif(component STREQUAL "library")
        set(package ${library_package})
    else()
        set(package libzoflvdmx-dev)
    endif()
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    string(TOUPPER ${component} name)
    set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${package})
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zoflv)
install(FILES ${PROJECT_SOURCE_DIR}/docs/zoflv.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/zoflv)
install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/zoflv.bash RENAME zoflv
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

set(CPACK_COMPONENTS_ALL command library development)
set(CPACK_COMPONENT_COMMAND_DESCRIPTION "shows what an FLV file holds, and what a device will do with it")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "demuxer for FLV files")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "demuxer for FLV files, development files")
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION video)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT ${ZOFLV_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform/lib)
include(CPack)
