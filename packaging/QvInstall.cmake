# What `cmake --install` puts into a prefix, and what `cpack -G DEB` packs.
include(CMakePackageConfigHelpers)

install(TARGETS quorvel_core
  EXPORT quorvel_core_targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT quorvel_core_targets
  NAMESPACE quorvel::
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/quorvel_core")

configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/packaging/quorvel_core-config.cmake.in"
  "${PROJECT_BINARY_DIR}/quorvel_core-config.cmake"
  INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/quorvel_core")
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/quorvel_core-config-version.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/quorvel_core-config.cmake"
  "${PROJECT_BINARY_DIR}/quorvel_core-config-version.cmake"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/quorvel_core")

# Relative, so that a prefix that is moved keeps working.
file(RELATIVE_PATH QV_PREFIX_FROM_PKGCONFIG
  "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file("${PROJECT_SOURCE_DIR}/packaging/quorvel_core.pc.in"
  "${PROJECT_BINARY_DIR}/quorvel_core.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/quorvel_core.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvel-core)
set(CPACK_PACKAGE_VENDOR "quorvel_core authors")
set(CPACK_PACKAGE_CONTACT "quorvel_core authors <quorvel-core@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL OFF)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libopenimageio-dev")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
include(CPack)
