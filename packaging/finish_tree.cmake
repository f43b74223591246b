# Completes what CPack has installed for the packages: the documents that Debian wants with them,
# compressed as it wants them, and libraries and tools without what only their build needed.
set(debian "${CPACK_ORV_SOURCE_DIR}/packaging/debian")
set(readable PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER "${component}" upper)
  set(package "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  set(tree "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr")
  set(documents "${tree}/share/doc/${package}")
  file(COPY "${debian}/copyright" DESTINATION "${documents}" FILE_${readable})
  configure_file("${CPACK_ORV_SOURCE_DIR}/CHANGELOG.md" "${documents}/changelog" COPYONLY)
  configure_file("${debian}/changelog" "${documents}/changelog.Debian" COPYONLY)
  file(CHMOD "${documents}/changelog" "${documents}/changelog.Debian" ${readable})
  if(EXISTS "${debian}/${package}.lintian-overrides")
    file(COPY "${debian}/${package}.lintian-overrides"
      DESTINATION "${tree}/share/lintian/overrides" FILE_${readable})
    file(RENAME "${tree}/share/lintian/overrides/${package}.lintian-overrides"
      "${tree}/share/lintian/overrides/${package}")
  endif()

  file(GLOB_RECURSE pages "${tree}/share/man/*")
  run(gzip -9 -n "${documents}/changelog" "${documents}/changelog.Debian" ${pages})
  set(notes --remove-section=.comment --remove-section=.note)
  file(GLOB archives "${tree}/lib/*/*.a")
  if(archives)
    run(strip --strip-debug --enable-deterministic-archives ${notes} ${archives})
  endif()
  file(GLOB tools "${tree}/bin/*" "${tree}/lib/*/orv/*.so")
  if(tools)
    run(strip ${notes} ${tools})
  endif()
endforeach()
