# Lets another project find_package(zkfilesystemquorin) against the install tree.
include(CMakePackageConfigHelpers)
install(EXPORT zkfsTargets NAMESPACE zkfs:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zkfilesystemquorin)
configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/zkfilesystemquorinConfig.cmake.in"
  "${CMAKE_BINARY_DIR}/zkfilesystemquorinConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zkfilesystemquorin)
write_basic_package_version_file(
  "${CMAKE_BINARY_DIR}/zkfilesystemquorinConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${CMAKE_BINARY_DIR}/zkfilesystemquorinConfig.cmake"
  "${CMAKE_BINARY_DIR}/zkfilesystemquorinConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zkfilesystemquorin)
