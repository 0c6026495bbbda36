# The Debian package of the command line: `cpack -G DEB` in a Linux build folder (after the build)
# makes kestrel-cli_<version>_<arch>.deb with the program in /usr/bin, its manual page
# kestrel-cli(1), and the README and the licence under /usr/share/doc/kestrel-cli. The
# dependencies come from dpkg-shlibdeps (dpkg-dev). Packaging does not build everything first: the
# build has made the program and, right after it, the manual page (src/cli/CMakeLists.txt).
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS kestrel-cli RUNTIME DESTINATION bin COMPONENT cli)
install(FILES ${PROJECT_BINARY_DIR}/man/kestrel-cli.1.gz DESTINATION share/man/man1 COMPONENT cli)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION share/doc/kestrel-cli COMPONENT cli)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION share/doc/kestrel-cli RENAME copyright COMPONENT cli)

set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "kestrel-cli")
set(CPACK_PACKAGE_VENDOR "Kestrel developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Modbus TCP and RTU master, slave and structure poller (command line)")
set(CPACK_PACKAGE_DESCRIPTION "kestrel-cli reads and writes Modbus devices as a master over TCP or a \
serial line (RTU), serves a register image as a slave, decodes register values and polls devices \
described as structures of typed data points, with alarms, CSV recording and PCAP capture. It is \
the command line of Kestrel, a tool for commissioning and testing field devices.")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL OFF)

set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Kestrel developers")
set(CPACK_DEBIAN_PACKAGE_SECTION "electronics")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

include(CPack)
