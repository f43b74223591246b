# Writes the pkg-config module for the prefix that is being installed to.
#
# The module finds the prefix from the folder that it lies in, so that an installed tree may be
# moved. A prefix with a blank in its name is written down instead: pkgconf 1.8 quotes the blanks of
# ${pcfiledir} twice, so a program could not be built with what it prints.
if(IS_ABSOLUTE "${ORV_LIBDIR}" OR CMAKE_INSTALL_PREFIX MATCHES " ")
  set(ORV_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH up "/${ORV_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" up "${up}")
  set(ORV_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${ORV_${dir}}")
    set(ORV_PC_${dir} "${ORV_${dir}}")
  else()
    set(ORV_PC_${dir} "\${prefix}/${ORV_${dir}}")
  endif()
endforeach()
configure_file("${ORV_PC_TEMPLATE}" "${ORV_PC_FILE}" @ONLY)
