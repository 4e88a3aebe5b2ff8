# SPDX-License-Identifier: MIT
# Debian packages, one per component; scripts/package makes them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The Orvik contributors <packages@orvik.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_SET_DESTDIR ON) # the settings stand outside the prefix
set(CPACK_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL daemon)
if(ORVIK_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME pullapp-opc-ua)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS pullapp-opc-ua-tools)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION
"pull application for OPC UA devices
Runs on an industrial gateway, one process per device: logs on to the local
steward, receives the description of the device, reads all its tags from an
OPC UA server with one request per pull, and writes their values back to the
steward. Faults are published and logged, and it recovers by itself.")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
  "${PROJECT_SOURCE_DIR}/packaging/debian/conffiles"
  "${PROJECT_SOURCE_DIR}/packaging/debian/postinst"
  "${PROJECT_SOURCE_DIR}/packaging/debian/prerm"
  "${PROJECT_SOURCE_DIR}/packaging/debian/postrm")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME pullapp-opc-ua-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS pullapp-opc-ua)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"tools to commission OPC UA devices with
opcua-commission lists what an OPC UA server offers and writes the description
of a device with it. steward-simulator takes the place of the
steward that pullapp-opc-ua logs on to, and checks and shows what arrives.
opcua-simulator is an OPC UA server with the tags of a device description,
changing values, and faults on demand.")

include(CPack)
