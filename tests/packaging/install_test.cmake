# Installs the build into a scratch root (DESTDIR, so that nothing reaches
# /etc), checks the unit, then builds and runs the outside project against
# the installed library, once per way of finding it.
#   cmake -DBUILD_DIR= -DWORK_DIR= -DCONSUMER_DIR= -DLIBDIR= -DUNIT= -DBINDIR=
#         -DCXX= -DCXX_FLAGS= -P install_test.cmake
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${ARGN}: ${rc}\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(ENV{DESTDIR} ${WORK_DIR}/root)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix /heron)
unset(ENV{DESTDIR})
set(prefix ${WORK_DIR}/root/heron)

file(READ ${prefix}/${UNIT} unit)
if(NOT unit MATCHES "\nExecStart=${BINDIR}/serial_ingest -z\n")
  message(FATAL_ERROR "${UNIT} does not start ${BINDIR}/serial_ingest")
endif()
# The site is checked before a start and before the reload's SIGHUP.
if(NOT unit MATCHES "\nExecStartPre=${BINDIR}/site_check\n" OR
   NOT unit MATCHES "\nExecReload=${BINDIR}/site_check\nExecReload=/bin/kill -HUP [$]MAINPID\n" OR
   NOT unit MATCHES "\nAfter=[^\n]*time-sync.target" OR NOT EXISTS ${prefix}/bin/site_check)
  message(FATAL_ERROR "${UNIT} does not run an installed ${BINDIR}/site_check before a start and a reload")
endif()

# Only the public headers are installed, and each finds what it includes.
file(GLOB_RECURSE headers RELATIVE ${prefix}/include/heron ${prefix}/include/heron/*.h)
foreach(h ${headers})
  file(STRINGS ${prefix}/include/heron/${h} includes REGEX "^#include \"")
  foreach(line ${includes})
    string(REGEX REPLACE "^#include \"([^\"]*)\".*" "\\1" inc "${line}")
    if(NOT EXISTS ${prefix}/include/heron/${inc})
      message(FATAL_ERROR "installed ${h} includes ${inc}, which is not installed")
    endif()
  endforeach()
endforeach()
if(EXISTS ${prefix}/include/heron/site/channels_grammar.h OR EXISTS ${prefix}/include/heron/calconf/prep_grammar.h)
  message(FATAL_ERROR "the grammars' internals are installed")
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
foreach(via find_package pkg_config)
  run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/${via} -DHERON_VIA=${via}
      -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/${via})
  run(${WORK_DIR}/${via}/consumer)
endforeach()
