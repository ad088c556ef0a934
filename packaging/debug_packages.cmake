# Run by CPack, which writes the paths of this machine into the checksums of the debug symbols.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "\\.ddeb$")
    continue()
  endif()
  execute_process(COMMAND sh -euc "
      dpkg-deb --raw-extract '${package}' '${package}.tree'
      sed -i 's|  /.*-dbgsym/|  |' '${package}.tree/DEBIAN/md5sums'
      dpkg-deb --root-owner-group --build '${package}.tree' '${package}' >/dev/null
      rm -r '${package}.tree'"
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
