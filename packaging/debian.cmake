# Debian packages, made by `cpack` in a release build that is configured with the prefix /usr.
#
# The licence is the owner's choice. Once there is a file LICENSE, every package carries it as its
# copyright file.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Veltrano maintainers <maintainers@veltrano.invalid>" CACHE STRING
    "The maintainer that the packages name")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The symbols for debuggers are packages of their own; without them, the others are stripped.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debug_packages.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")  # a mended release may replace this one
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_ALL)

# debian_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION DEPENDS)
function(debian_package component name section summary description depends)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)

  set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${documents} COMPONENT ${component} EXCLUDE_FROM_ALL)  # only in packages
  if(EXISTS ${PROJECT_SOURCE_DIR}/LICENSE)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
      DESTINATION ${documents} RENAME copyright COMPONENT ${component})
  endif()
endfunction()

# A commit always makes the same packages: their time is the commit's.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(epoch $ENV{SOURCE_DATE_EPOCH})
else()
  execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(epoch)
  set(ENV{SOURCE_DATE_EPOCH} ${epoch})  # for the date below
  set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/package_time.cmake)
  file(WRITE ${CPACK_PROJECT_CONFIG_FILE} "set(ENV{SOURCE_DATE_EPOCH} ${epoch})\n")
endif()
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nf changelog.Debian WORKING_DIRECTORY ${PROJECT_BINARY_DIR})

set(library libveltrano${PROJECT_VERSION_MAJOR})
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
debian_package(library ${library} libs "event-analytics client, shared library"
  "The library that programs use to report events to a collection server."
  "")
# Slim systems have none, and a collection host can bring its own.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS ca-certificates)
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
# The last two do not exist. Naming them keeps CPack from writing scripts that call ldconfig, too.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers
  ${PROJECT_BINARY_DIR}/none/postinst ${PROJECT_BINARY_DIR}/none/postrm)
debian_package(development libveltrano-dev libdevel "event-analytics client, development files"
  "The headers for C++ and C, and the packages for CMake and pkg-config."
  "${library} ${same_version}")
debian_package(testing libveltrano-testing-dev libdevel "event-analytics client, test kit"
  "For tests that see what an application reports, in virtual time."
  "libveltrano-dev ${same_version}")
debian_package(tools veltrano-tools devel "event-analytics client, tools"
  "A collection server for developers, a player of scenarios, a load simulation, and tracking plans."
  "")
include(CPack)
