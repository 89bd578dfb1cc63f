# Installs the CMake package (imported targets cm::zr, cm::zrcore, cm::cm) and the
# pkg-config files zr.pc, zrcore.pc and cm.pc.
include(CMakePackageConfigHelpers)

set(CM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/cm)
install(EXPORT cmTargets NAMESPACE cm:: DESTINATION ${CM_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/cmConfig.cmake.in
    ${PROJECT_BINARY_DIR}/cmConfig.cmake INSTALL_DESTINATION ${CM_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmConfig.cmake ${PROJECT_BINARY_DIR}/cmConfigVersion.cmake
        DESTINATION ${CM_CMAKE_DIR})

# The pkg-config files find the prefix from their own place, so that an installation moved
# elsewhere (or installed with cmake --install --prefix) still describes itself.
file(RELATIVE_PATH CM_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" CM_PC_PREFIX "${CM_PC_PREFIX}")
foreach(pc zr zrcore cm)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
