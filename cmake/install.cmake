# What `cmake --install` puts in place: the header, the library, and what finds them for CMake and for pkg-config.
#
# Two components: `library` is what a program needs that runs, `development` what a program needs that is built.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

target_include_directories(quenta_native INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS quenta_native EXPORT quenta_native
    RUNTIME COMPONENT library
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
install(FILES source/quenta_solvers/quenta_native.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# find_package(quenta_native) gives the target quenta::quenta_native, which depends on nothing.
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/quenta_native)
install(EXPORT quenta_native NAMESPACE quenta:: FILE quenta_native-targets.cmake DESTINATION ${package_directory}
    COMPONENT development)
set(package_file ${PROJECT_BINARY_DIR}/quenta_native-config)
file(CONFIGURE OUTPUT ${package_file}.cmake @ONLY
    CONTENT "include(\"\${CMAKE_CURRENT_LIST_DIR}/quenta_native-targets.cmake\")\n")
write_basic_package_version_file(${package_file}-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${package_file}.cmake ${package_file}-version.cmake DESTINATION ${package_directory}
    COMPONENT development)

# The prefix is where the file is found, so that the installed tree may be moved.
set(pkgconfig_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_directory} /prefix)
configure_file(cmake/quenta_native.pc.in quenta_native.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quenta_native.pc DESTINATION ${pkgconfig_directory} COMPONENT development)
