# Installs the header, the library, the files for CMake and pkg-config, and the program with manual pages and
# completion.
#
# There are three components: `library` (to run programs), `development` (to build programs) and `program` (quenta).
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

target_include_directories(quenta_native INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS quenta_native EXPORT quenta_native
    RUNTIME COMPONENT library
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
install(FILES source/quenta_solvers/quenta_native.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# find_package(quenta_native) defines the target quenta::quenta_native, which has no dependencies.
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/quenta_native)
install(EXPORT quenta_native NAMESPACE quenta:: FILE quenta_native-targets.cmake DESTINATION ${package_directory}
    COMPONENT development)
set(package_file ${PROJECT_BINARY_DIR}/quenta_native-config)
file(CONFIGURE OUTPUT ${package_file}.cmake @ONLY
    CONTENT "include(\"\${CMAKE_CURRENT_LIST_DIR}/quenta_native-targets.cmake\")\n")
write_basic_package_version_file(${package_file}-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${package_file}.cmake ${package_file}-version.cmake DESTINATION ${package_directory}
    COMPONENT development)

# quenta_native.pc states the prefix relative to itself, so that the installation can be moved. Absolute directories
# stay absolute.
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
configure_file(cmake/quenta_native.pc.in quenta_native.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quenta_native.pc DESTINATION ${pkgconfig_directory} COMPONENT development)

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
