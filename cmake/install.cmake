# An installed copy is found by find_package(qvcore6) and by pkg-config, wherever it is moved to.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qvcore6)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS qvcore6 EXPORT qvcore6-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qvcore6
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(EXPORT qvcore6-targets NAMESPACE qvcore6:: DESTINATION ${package_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/qvcore6-config.cmake.in
  ${PROJECT_BINARY_DIR}/qvcore6-config.cmake
  INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO)
# Below 1.0 a new minor version may break callers.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qvcore6-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/qvcore6-config.cmake
  ${PROJECT_BINARY_DIR}/qvcore6-config-version.cmake
  DESTINATION ${package_dir})

# From the .pc file's own folder, so that --prefix at install time is right as well.
file(RELATIVE_PATH QVCORE6_PC_PREFIX
  /prefix/${pkgconfig_dir} /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/qvcore6.pc.in ${PROJECT_BINARY_DIR}/qvcore6.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qvcore6.pc DESTINATION ${pkgconfig_dir})
