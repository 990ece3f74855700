# Builds the sources that it stands in: vcpkg install kvpim --overlay-ports=packaging/vcpkg
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS features FEATURES
  c KVPIM_BUILD_BINDING
  testkit KVPIM_BUILD_TESTKIT)
vcpkg_find_acquire_program(PKGCONFIG)
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS ${features} -DKVPIM_BUILD_TOOLS=OFF -DKVPIM_BUILD_EXAMPLES=OFF -DKVPIM_BUILD_TESTS=OFF
          "-DPKG_CONFIG_EXECUTABLE=${PKGCONFIG}")
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME KvPim CONFIG_PATH lib/cmake/KvPim)
vcpkg_fixup_pkgconfig()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share"
  "${CURRENT_PACKAGES_DIR}/lib/python3" "${CURRENT_PACKAGES_DIR}/debug/lib/python3")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
