# The Debian packages liborv1 and liborv-dev, as CPack makes them of the two components. They are
# built by scripts/package, which sets the distribution's flags and the dates first.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME orv)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# The rules that write the prefix down see /usr, not the folder that CPack gathers in.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# What is not installed but packaged, and how.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/finish_tree.cmake")
set(CPACK_ORV_SOURCE_DIR "${PROJECT_SOURCE_DIR}")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE orv)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The authors of orv <authors@orv.invalid>"
  CACHE STRING "Who answers for the Debian packages")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "liborv${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Checked allocation with a debug mode that watches every block, messages for\npeople and a trace for their debuggers, companion processes, framed socket\nmessages, and the file calls that long-lived programs need.\n\nThis package holds the shared library and the manual page orv(7).")
# The symbols are written by scripts/package.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${CMAKE_CURRENT_LIST_DIR}/debian/triggers"
  "${CMAKE_CURRENT_LIST_DIR}/debian/shlibs"
  "${PROJECT_BINARY_DIR}/debian/symbols")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborv-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libc6-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Checked allocation with a debug mode that watches every block, messages for\npeople and a trace for their debuggers, companion processes, framed socket\nmessages, and the file calls that long-lived programs need.\n\nThis package holds what programs are built and examined with: headers, the\nstatic library, files for CMake and pkg-config, a helper for gdb, and the tool\nthat refuses calls of programs, orv-torture(1).")

include(CPack)
