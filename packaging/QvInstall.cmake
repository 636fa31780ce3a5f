# What `cmake --install` puts into a prefix, and what `cpack -G DEB` packs.
include(CMakePackageConfigHelpers)

install(TARGETS quorvel_core
  EXPORT quorvel_core_targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
if(TARGET quorvel_core_images)
  install(TARGETS quorvel_core_images LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
endif()
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
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# Two packages: quorvel-core has all but the Python package, python3-quorvel that.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Unspecified development)
set(CPACK_DEBIAN_CORE_PACKAGE_NAME quorvel-core)
set(CPACK_DEBIAN_CORE_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CORE_PACKAGE_DEPENDS "libopenimageio-dev")
if(QV_PYTHON_VERSION)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-quorvel)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Compositions of image nodes from Python")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "quorvel-core (= ${PROJECT_VERSION}), python3 (>= ${QV_PYTHON_VERSION}), python3 (<< ${QV_PYTHON_NEXT}), python3-numpy")
  # The library of the other package, which is not installed while this one is made.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/qv")
endif()
include(CPack)
cpack_add_component_group(core)
cpack_add_component_group(python)
cpack_add_component(Unspecified GROUP core)
cpack_add_component(development GROUP core)
cpack_add_component(python GROUP python)
