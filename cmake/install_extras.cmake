# What comes with the programs: man pages, units for systemd, completion.
set(LANYARD_SYSTEMD_UNIT_DIR lib/systemd/system CACHE STRING "Folder for the units, below the prefix")

set(_man ${PROJECT_SOURCE_DIR}/docs/man)
install(FILES ${_man}/radius.conf.5 ${_man}/radius.dict.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES ${_man}/radauth.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${_man}/lanyardctl.8 ${_man}/ntresponse.8 ${_man}/pnac-wired.8 ${_man}/radeapd.8
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# One page tells of all programs that make requests.
set(_requests radauth radauth-all radauth-portal radacct radchap radchap-portal radmschap radmschap-portal
    radmschapv2 radmschapv2-portal)
foreach(_program ${_requests})
  if(NOT _program STREQUAL "radauth")
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/man/${_program}.1 CONTENT ".so man1/radauth.1\n")
    install(FILES ${PROJECT_BINARY_DIR}/man/${_program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endforeach()

foreach(_unit lanyardctl.service lanyardctl-acct.service pnac-wired@.service radeapd.service)
  configure_file(${PROJECT_SOURCE_DIR}/etc/systemd/${_unit}.in ${PROJECT_BINARY_DIR}/systemd/${_unit} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/systemd/${_unit} DESTINATION ${LANYARD_SYSTEMD_UNIT_DIR})
endforeach()

# bash looks for a completion by the name of the program.
foreach(_program ${_requests} lanyardctl pnac-wired radeapd)
  install(FILES ${PROJECT_SOURCE_DIR}/etc/completion/lanyard-radius.bash RENAME ${_program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endforeach()
