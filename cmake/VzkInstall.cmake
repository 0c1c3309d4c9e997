# Installs the SDK headers, the plug-in, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vzk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS vzk_sdk EXPORT vzkTargets)
if(TARGET ToolkitSourcePlugin_vzk)
  install(TARGETS ToolkitSourcePlugin_vzk LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vzk)
endif()
install(EXPORT vzkTargets NAMESPACE vzk:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vzk)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vzkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vzkConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vzk)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vzkConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vzkConfig.cmake ${PROJECT_BINARY_DIR}/vzkConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vzk)
file(RELATIVE_PATH VZK_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vzk.pc.in ${PROJECT_BINARY_DIR}/vzk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vzk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
