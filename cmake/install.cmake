# What is installed beside the programs. Each program, backend and tool installs itself, in its own
# CMakeLists.txt. Nothing but the logo goes outside the prefix: /etc/vrm.conf and /var/lib/vrm belong
# to the administrator of a machine.

# Where backends are loaded from is one fixed path, so this is no multiarch directory.
set(VRM_BACKEND_DIR lib/vrm)

# The one header that a backend is built against.
install(FILES src/vrm/vrc_backend.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vrm)
configure_file(packaging/vrm.pc.in ${PROJECT_BINARY_DIR}/vrm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vrm.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig)

file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.[1-8])
foreach(page ${pages})
  string(REGEX MATCH "[1-8]$" section ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# A completion file bears the name of its command.
file(GLOB completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/completions/*)
install(FILES ${completions} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

file(GLOB samples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/*.sample)
install(FILES ${samples} DESTINATION ${CMAKE_INSTALL_DATADIR}/vrm)

file(GLOB desktop_entries CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/*.desktop)
install(FILES ${desktop_entries} DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)

# The window looks for its logo by this path, whatever the prefix.
install(FILES packaging/xvrm-logo.png DESTINATION /opt/X11/share/pixmaps)
