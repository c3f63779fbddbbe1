# What an installation adds beside the programs and libraries: the CMake
# package and pkg-config files for programs built against the library, the
# daemon's systemd unit, rsyslog rule and logrotate file, the manual pages of
# the site files, and the licence.
include(CMakePackageConfigHelpers)

install(EXPORT heronTargets NAMESPACE heron:: DESTINATION ${HERON_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/heronConfig.cmake.in
  ${PROJECT_BINARY_DIR}/heronConfig.cmake INSTALL_DESTINATION ${HERON_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/heronConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/heronConfig.cmake ${PROJECT_BINARY_DIR}/heronConfigVersion.cmake
  DESTINATION ${HERON_INSTALL_CMAKEDIR})

# The pkg-config files find the prefix from their own place, so an
# installation moved elsewhere (or made with cmake --install --prefix) works.
file(RELATIVE_PATH HERON_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" HERON_PC_TO_PREFIX "${HERON_PC_TO_PREFIX}")
foreach(pc heron heron_calib)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# The units name their programs by the paths they are installed at.
foreach(unit serial_ingest station_page)
  configure_file(${PROJECT_SOURCE_DIR}/examples/${unit}.service.in ${PROJECT_BINARY_DIR}/${unit}.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${unit}.service DESTINATION ${HERON_SYSTEMD_UNITDIR})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/examples/rsyslog-serial_ingest.conf
  DESTINATION ${HERON_INSTALL_ETCDIR}/rsyslog.d RENAME 30-serial_ingest.conf)
install(FILES ${PROJECT_SOURCE_DIR}/examples/logrotate-serial_ingest
  DESTINATION ${HERON_INSTALL_ETCDIR}/logrotate.d RENAME serial_ingest)

heron_install_man(${PROJECT_SOURCE_DIR}/lib/site/ingest.conf.5
  ${PROJECT_SOURCE_DIR}/lib/site/channel_config.5)

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${HERON_INSTALL_DOCDIR} RENAME copyright)
