# SPDX-License-Identifier: MIT
# What goes where on a Debian-like system. One component per package: the daemon, and the programs to
# commission a device with ("tools").

set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # tests need not be built to install

# Fills in the installation folders, and compresses a text as Debian requires for manual pages and long
# documents. The result does not depend on when it was made.
function(orvik_install_text component source folder)
  cmake_path(GET source FILENAME name)
  if(ARGC GREATER 3)
    set(name ${ARGV3})
  endif()
  string(REGEX REPLACE "\\.in$" "" name ${name})
  set(text "${PROJECT_BINARY_DIR}/install/${component}/${name}")
  configure_file(${source} ${text} @ONLY)
  if(name MATCHES "\\.([18]|md)$|^changelog")
    execute_process(COMMAND gzip -9nf ${text} COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND text ".gz")
  endif()
  install(FILES ${text} DESTINATION ${folder} COMPONENT ${component})
endfunction()

set(toolsDocDir "${CMAKE_INSTALL_DATAROOTDIR}/doc/pullapp-opc-ua-tools")
set(completionDir "${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions")
set(unitDir "lib/systemd/system")
set(settingsDir "${CMAKE_INSTALL_FULL_SYSCONFDIR}")

install(TARGETS pullapp-opc-ua RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(FILES packaging/bash-completion/pullapp-opc-ua DESTINATION ${completionDir} COMPONENT daemon)
install(FILES packaging/systemd/defaults.conf DESTINATION ${settingsDir}/default RENAME pullapp-opc-ua COMPONENT daemon)
install(DIRECTORY DESTINATION ${settingsDir}/pullapp-opc-ua COMPONENT daemon)
install(FILES packaging/debian/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT daemon)
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT daemon)
install(FILES packaging/systemd/instance.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT daemon)
orvik_install_text(daemon packaging/systemd/pullapp-opc-ua@.service.in ${unitDir})
orvik_install_text(daemon packaging/man/pullapp-opc-ua.8.in ${CMAKE_INSTALL_MANDIR}/man8)
orvik_install_text(daemon packaging/debian/changelog ${CMAKE_INSTALL_DOCDIR})
foreach(document README.md SECURITY.md docs/containers.md docs/errors.md docs/fleet.md
    docs/troubleshooting.md)
  orvik_install_text(daemon ${document} ${CMAKE_INSTALL_DOCDIR})
endforeach()

if(ORVIK_BUILD_TOOLS)
  foreach(tool steward-simulator opcua-simulator opcua-commission)
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES packaging/bash-completion/${tool} DESTINATION ${completionDir} COMPONENT tools)
    orvik_install_text(tools packaging/man/${tool}.1 ${CMAKE_INSTALL_MANDIR}/man1)
  endforeach()
  install(FILES packaging/debian/copyright DESTINATION ${toolsDocDir} COMPONENT tools)
  orvik_install_text(tools packaging/debian/changelog ${toolsDocDir})
endif()
