# A pair of Debian packages, one for each component of the installation: scripts/package.
find_program(QUENTA_GZIP gzip)
if(NOT QUENTA_GZIP) # so this is no Debian system
    return()
endif()
set(changelog ${PROJECT_BINARY_DIR}/changelog.gz)
execute_process(COMMAND ${QUENTA_GZIP} -9n INPUT_FILE ${PROJECT_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${changelog}
    COMMAND_ERROR_IS_FATAL ANY)
foreach(package libquenta-native0 libquenta-native-dev)
    set(component library)
    if(package MATCHES "-dev$")
        set(component development)
    endif()
    # Only in the packages, not where `cmake --install` puts everything.
    install(FILES LICENSE DESTINATION share/doc/${package} RENAME copyright COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${changelog} DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL library development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
# Whatever the umask is where the packages are made.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "the quenta_native developers <quenta-native@localhost>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libquenta-native0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "The library that programs need to run.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "The header, and what CMake and pkg-config need to build programs with the library.")
include(CPack)
