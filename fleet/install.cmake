# Installs yusb-fleet: the component and Debian package "fleet".
file(RELATIVE_PATH bin_to_lib /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set_target_properties(yusb-fleet PROPERTIES INSTALL_RPATH "\$ORIGIN/${bin_to_lib}")
install(TARGETS yusb-fleet RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT fleet)
install(FILES fleet/yusb-fleet.service DESTINATION lib/systemd/system COMPONENT fleet)
install(FILES fleet/completion/yusb-fleet.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME yusb-fleet COMPONENT fleet)
install(FILES fleet/completion/_yusb-fleet DESTINATION ${CMAKE_INSTALL_DATADIR}/${zsh_dir} COMPONENT fleet)
install(FILES fleet/yusb-fleet.conf fleet/yusb-fleet.acl fleet/mosquitto.service.conf
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/yusb-fleet/examples COMPONENT fleet)
yorvan_manual(fleet fleet/yusb-fleet.1)
