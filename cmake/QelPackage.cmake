# Installs the SDK with a CMake package and a pkg-config file, the module, and the tool.
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/qel")

install(DIRECTORY sdk/include/qel DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT sdk)
install(TARGETS qel_sdk EXPORT qel-targets)
install(EXPORT qel-targets NAMESPACE qel:: FILE qel-config.cmake DESTINATION "${package_folder}"
  COMPONENT sdk)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/qel-config-version.cmake"
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qel-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT sdk)

configure_file(cmake/qel.pc.in qel.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qel.pc"
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/pkgconfig" COMPONENT sdk)

install(TARGETS QELMaths LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/qel/_binLIN64" COMPONENT module)
install(TARGETS qel RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tool)
