# Builds the sources that contain this port:
#
#     vcpkg install veltrano --overlay-ports=packaging/vcpkg
#
# Not run yet: vcpkg needs the internet.
set(SOURCE_PATH "${CURRENT_PORT_DIR}/../..")
vcpkg_find_acquire_program(PKGCONFIG)
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS -DVELTRANO_DEVELOPER=OFF "-DPKG_CONFIG_EXECUTABLE=${PKGCONFIG}"
)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME Veltrano CONFIG_PATH lib/cmake/Veltrano)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
if(EXISTS "${SOURCE_PATH}/LICENSE")  # the owner's to choose
  vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
endif()
