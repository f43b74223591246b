# What `cmake --install` puts into a prefix: headers, library, CMake package, pkg-config module,
# debugger helper, manual page. The tools bring themselves.
include(CMakePackageConfigHelpers)

# Programs need the runtime component alone; whatever names none serves those who build them.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(TARGETS ${ORV_LIBRARIES} EXPORT orv-targets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
foreach(dir IN ITEMS messages alloc platform)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/components/${dir}/include/orv"
          DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
endforeach()

set(ORV_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/orv")
install(EXPORT orv-targets NAMESPACE orv:: FILE orvTargets.cmake DESTINATION "${ORV_CMAKE_DIR}")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/orvConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/orvConfig.cmake" INSTALL_DESTINATION "${ORV_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/orvConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/orvConfig.cmake" "${PROJECT_BINARY_DIR}/orvConfigVersion.cmake"
        DESTINATION "${ORV_CMAKE_DIR}")

# Written at installation, when the prefix is settled (`cmake --install --prefix` may change it).
install(CODE "
  set(ORV_PC_TEMPLATE [[${PROJECT_SOURCE_DIR}/cmake/orv.pc.in]])
  set(ORV_PC_FILE [[${PROJECT_BINARY_DIR}/orv.pc]])
  set(ORV_LIBDIR [[${CMAKE_INSTALL_LIBDIR}]])
  set(ORV_INCLUDEDIR [[${CMAKE_INSTALL_INCLUDEDIR}]])
  set(ORV_DESCRIPTION [[${PROJECT_DESCRIPTION}]])
  set(ORV_VERSION [[${PROJECT_VERSION}]])
  include([[${PROJECT_SOURCE_DIR}/cmake/write_pc.cmake]])")
install(FILES "${PROJECT_BINARY_DIR}/orv.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# The debugger helper. gdb loads it by itself with the shared library when it lies in a folder that
# mirrors the library's own, which is settled at installation.
set(ORV_GDB_HELPER "${PROJECT_SOURCE_DIR}/gdb/orv-gdb.py")
install(FILES "${ORV_GDB_HELPER}" DESTINATION "${CMAKE_INSTALL_DATADIR}/orv")
if(BUILD_SHARED_LIBS)
  install(CODE "
    set(libdir [[${CMAKE_INSTALL_LIBDIR}]])
    if(NOT IS_ABSOLUTE \"\${libdir}\")
      set(libdir \"\${CMAKE_INSTALL_PREFIX}/\${libdir}\")
    endif()
    file(INSTALL [[${ORV_GDB_HELPER}]]
         DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${libdir}\"
         RENAME \"liborv.so.${PROJECT_VERSION}-gdb.py\")")
endif()

# What leak checkers need not report.
install(FILES "${PROJECT_SOURCE_DIR}/tools/suppressions/valgrind.supp"
              "${PROJECT_SOURCE_DIR}/tools/suppressions/lsan.supp"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/orv")

install(FILES "${PROJECT_SOURCE_DIR}/docs/man/orv.7" DESTINATION "${CMAKE_INSTALL_MANDIR}/man7"
        COMPONENT runtime)
