# A Debian package of the whole installation, made with cpack in the build
# folder.  The unit names serial_ingest by its configured path, so the
# package keeps the configured prefix: configure with
# -DCMAKE_INSTALL_PREFIX=/usr for a package that installs into the system.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  message(STATUS "Install prefix ${CMAKE_INSTALL_PREFIX}: a Debian package (cpack) needs /usr")
endif()

set(HERON_DEB_MAINTAINER "heron acquisition software authors <heron-maintainers@example.org>"
  CACHE STRING "Maintainer field of the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${HERON_PACKAGE_NAME})
set(CPACK_PACKAGE_VENDOR "the heron acquisition software authors")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "serial front end of a field data-acquisition network")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "serial_ingest opens the serial ports of an acquisition computer and\n"
  "dumps their traffic, prints the raw samples an acquisition module sends\n"
  "or, as a daemon, starts and supervises one acquisition process per port.\n"
  ".\n"
  "The package also holds raw_dump and raw_playback, the heron library (raw\n"
  "samples, site configuration readers, time, remote-procedure clients,\n"
  "calibration functions) with its headers, CMake and pkg-config files, and\n"
  "a systemd unit, rsyslog rule and logrotate file for the daemon.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES TRUE)

set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${HERON_DEB_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Dependencies of the programs and libraries are read from them
# (dpkg-shlibdeps: libc6, libstdc++6, libtirpc3, ...); the headers need
# libtirpc-dev, the daemon wants a port mapper and a system logger, and
# cal_dump --plot runs gnuplot.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libtirpc-dev")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "rpcbind, rsyslog | system-log-daemon, logrotate, gnuplot-nox | gnuplot, parallel")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The files below etc are the site's to edit: dpkg keeps their changes.
if(IS_ABSOLUTE ${HERON_INSTALL_ETCDIR})
  set(_etc ${HERON_INSTALL_ETCDIR})
else()
  set(_etc ${CMAKE_INSTALL_PREFIX}/${HERON_INSTALL_ETCDIR})
endif()
file(WRITE ${PROJECT_BINARY_DIR}/debian/conffiles
  "${_etc}/logrotate.d/serial_ingest\n${_etc}/rsyslog.d/30-serial_ingest.conf\n")
# The shared libraries: dpkg runs ldconfig once after all packages of a run.
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/conffiles ${PROJECT_BINARY_DIR}/debian/triggers)

# Debian wants a changelog beside the copyright file.
string(TIMESTAMP HERON_DEB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${PROJECT_BINARY_DIR}/debian/changelog.Debian
  "${HERON_PACKAGE_NAME} (${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
  "  * Package made with cpack from the source tree.\n\n"
  " -- ${HERON_DEB_MAINTAINER}  ${HERON_DEB_DATE}\n")
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz
  COMMAND ${GZIP_EXECUTABLE} -9nkf ${PROJECT_BINARY_DIR}/debian/changelog.Debian
  DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog.Debian VERBATIM)
add_custom_target(deb_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz)
install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz DESTINATION ${HERON_INSTALL_DOCDIR})

include(CPack)
