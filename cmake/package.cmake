# One Debian package for each component of the installation, made by scripts/package.
find_program(QUENTA_GZIP gzip)
if(NOT QUENTA_GZIP) # not on a Debian system
    return()
endif()
set(changelog ${PROJECT_BINARY_DIR}/changelog.gz)
execute_process(COMMAND ${QUENTA_GZIP} -9n INPUT_FILE ${PROJECT_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${changelog}
    COMMAND_ERROR_IS_FATAL ANY)

# quenta_add_package(<name> <component> <section> <dependencies> <description>)
macro(quenta_add_package name component section dependencies description)
    # In the packages only: `cmake --install` does not install these.
    install(FILES LICENSE DESTINATION share/doc/${name} RENAME copyright COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${changelog} DESTINATION share/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${dependencies}")
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
    list(APPEND CPACK_COMPONENTS_ALL ${component})
endmacro()

# quenta_add_library_packages(<name> <component to run> <component to build> <contents to run> <contents to build>): the
# packages <name>0 and <name>-dev.
macro(quenta_add_library_packages name library development contents development_contents)
    quenta_add_package(${name}${PROJECT_VERSION_MAJOR} ${library} libs "" "${contents}")
    string(TOUPPER ${library} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_${upper}_PACKAGE_GENERATE_SHLIBS ON)
    quenta_add_package(${name}-dev ${development} libdevel "${name}${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})"
        "${development_contents}")
endmacro()

set(CPACK_COMPONENTS_ALL "")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
quenta_add_library_packages(libquenta-native library development
    "The library that programs need to run."
    "The header, and what CMake and pkg-config need to build programs with the library.")
quenta_add_library_packages(libquenta-equations equations_library equations_development
    "The library that programs need to run that solve Volterra equations given as functions."
    "The headers for C and C++20, and what CMake and pkg-config need to build programs with the library.")
if(QUENTA_BUILD_TOOLS)
    quenta_add_package(quenta program math "libquenta-native${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})"
        "The command-line program, which reads and writes CSV.")
    set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/source)
    # Debian compresses manual pages.
    set(compress ${PROJECT_BINARY_DIR}/compress_manual_pages.cmake)
    file(WRITE ${compress} "file(GLOB_RECURSE pages \"\${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.1\")\n"
        "if(pages)\n    execute_process(COMMAND \"${QUENTA_GZIP}\" -9n \${pages} COMMAND_ERROR_IS_FATAL ANY)\nendif()\n")
    set(CPACK_PRE_BUILD_SCRIPTS ${compress})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
# Independent of the umask.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "the quenta_native developers <quenta-native@localhost>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
include(CPack)
