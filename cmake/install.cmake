# Installs, in components that become packages: the library; what is needed to build a host
# (headers, CMake package, pkg-config file); the program with its manual and completion.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS keelstone EXPORT KeelstoneTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                COMPONENT library NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# What a host may include, and nothing else.
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Keelstone)
install(EXPORT KeelstoneTargets NAMESPACE Keelstone:: DESTINATION ${package_dir}
        COMPONENT development)
set(KEELSTONE_LIBRARY ${CMAKE_INSTALL_LIBDIR}/libkeelstone.so.${PROJECT_VERSION})
set(KEELSTONE_INCLUDES ${CMAKE_INSTALL_INCLUDEDIR})
configure_package_config_file(cmake/KeelstoneConfig.cmake.in KeelstoneConfig.cmake
                              INSTALL_DESTINATION ${package_dir}
                              PATH_VARS KEELSTONE_LIBRARY KEELSTONE_INCLUDES)
write_basic_package_version_file(KeelstoneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KeelstoneConfig.cmake
              ${PROJECT_BINARY_DIR}/KeelstoneConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The prefix is found from where the .pc files lie, so that the tree can be moved.
file(RELATIVE_PATH KEELSTONE_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/keelstone.pc.in keelstone.pc @ONLY)
configure_file(cmake/keelstone-c.pc.in keelstone-c.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/keelstone.pc ${PROJECT_BINARY_DIR}/keelstone-c.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
