# Where an installation puts things, relative to the install prefix unless
# noted, and how manual pages are installed.  Included before the source
# folders, whose install rules use these names.
include(GNUInstallDirs)

# The library's major version: programs linked against libheron.so.N keep
# working as long as N does not change.
set(HERON_SOVERSION ${PROJECT_VERSION_MAJOR})

# One include folder; the headers keep their subsystem folders beneath it
# ("base/Exception.h"), as the library's own sources include them.
set(HERON_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/heron)
set(HERON_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/heron)
# Debian package names take no "_", so the package and its documentation
# folder are called heron-serial-ingest.
set(HERON_PACKAGE_NAME heron-serial-ingest)
set(HERON_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/${HERON_PACKAGE_NAME})

# systemd reads units below /usr/lib and /usr/local/lib alike.
set(HERON_SYSTEMD_UNITDIR lib/systemd/system CACHE STRING
  "systemd unit folder, relative to the install prefix")

# The rsyslog rule and the logrotate file belong in /etc for a system
# installation (prefix /usr); any other prefix gets its own etc folder, so
# that a scratch or /usr/local installation never writes to /etc.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(HERON_INSTALL_ETCDIR /etc)
else()
  set(HERON_INSTALL_ETCDIR ${CMAKE_INSTALL_SYSCONFDIR})
endif()

# heron_install_man(<page>...): installs roff pages, named <name>.<section>,
# compressed (man reads them so, and Debian packages must ship them so) into
# the folder of their section.
find_program(GZIP_EXECUTABLE gzip REQUIRED)
function(heron_install_man)
  foreach(page IN LISTS ARGN)
    get_filename_component(src ${page} ABSOLUTE)
    get_filename_component(name ${page} NAME)
    string(REGEX MATCH "[0-9]$" section ${name})
    set(out ${CMAKE_CURRENT_BINARY_DIR}/man/${name})
    add_custom_command(OUTPUT ${out}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/man
      COMMAND ${CMAKE_COMMAND} -E copy ${src} ${out}
      COMMAND ${GZIP_EXECUTABLE} -9nf ${out}
      DEPENDS ${src} VERBATIM)
    string(MAKE_C_IDENTIFIER "man_${name}" target)
    add_custom_target(${target} ALL DEPENDS ${out}.gz)
    install(FILES ${out}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
endfunction()
