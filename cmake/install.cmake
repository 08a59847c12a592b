# Installs the libraries, each with its headers and files for CMake and pkg-config, and the program with manual pages
# and completion.
#
# The components are, for programs that use libquenta_native, `library` (to run them) and `development` (to build them);
# for those that use libquenta_equations, `equations_library` and `equations_development`; and `program` (quenta).
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# A .pc file states the prefix relative to itself, so that the installation can be moved. Absolute directories stay
# absolute.
set(pkgconfig_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(pkgconfig_prefix ${CMAKE_INSTALL_PREFIX})
else()
    file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_directory} /prefix)
    set(pkgconfig_prefix "\${pcfiledir}/${prefix_from_pkgconfig}")
endif()
foreach(directory LIBDIR INCLUDEDIR)
    set(pkgconfig_${directory} "\${prefix}")
    cmake_path(APPEND pkgconfig_${directory} ${CMAKE_INSTALL_${directory}}) # an absolute directory replaces the prefix
endforeach()

# quenta_install_library(<name> <component to run> <component to build> <description> <public header>...)
#
# find_package(<name>) defines the target quenta::<name>, which has no dependencies, and pkg-config knows <name>.
function(quenta_install_library name library development description)
    target_include_directories(${name} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    install(TARGETS ${name} EXPORT ${name}
        RUNTIME COMPONENT ${library}
        LIBRARY COMPONENT ${library} NAMELINK_COMPONENT ${development}
        ARCHIVE COMPONENT ${development})
    install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT ${development})

    set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    install(EXPORT ${name} NAMESPACE quenta:: FILE ${name}-targets.cmake DESTINATION ${package_directory}
        COMPONENT ${development})
    set(package_file ${PROJECT_BINARY_DIR}/${name}-config)
    file(CONFIGURE OUTPUT ${package_file}.cmake @ONLY
        CONTENT "include(\"\${CMAKE_CURRENT_LIST_DIR}/${name}-targets.cmake\")\n")
    write_basic_package_version_file(${package_file}-version.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${package_file}.cmake ${package_file}-version.cmake DESTINATION ${package_directory}
        COMPONENT ${development})

    configure_file(cmake/library.pc.in ${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_directory} COMPONENT ${development})
endfunction()

quenta_install_library(quenta_native library development
    "Solvers for linear Volterra equations given as samples or as blocks"
    source/quenta_solvers/quenta_native.h)
quenta_install_library(quenta_equations equations_library equations_development
    "Solvers for Volterra equations given as functions, linear or not"
    source/quenta_equations/quenta_equations.h source/quenta_equations/quenta_equations.hpp)

if(QUENTA_BUILD_TOOLS)
    if(UNIX AND NOT APPLE)
        # The program finds the library relative to itself.
        if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_BINDIR})
            set_target_properties(quenta PROPERTIES INSTALL_RPATH ${CMAKE_INSTALL_FULL_LIBDIR})
        else()
            file(RELATIVE_PATH libraries_from_programs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
            set_target_properties(quenta PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
        endif()
    endif()
    install(TARGETS quenta RUNTIME COMPONENT program)
    install(FILES ${QUENTA_MANUAL_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT program)
    install(FILES tools/completion/quenta DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions
        COMPONENT program)
endif()
