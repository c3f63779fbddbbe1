# ONC RPC interfaces of the acquisition-module server (ternserver.x) and the
# ingest server (ingest_rpc.x).  rpcgen writes the header, the XDR codecs and,
# for the module server, the client stubs at build time.
find_package(PkgConfig REQUIRED)
pkg_check_modules(TIRPC REQUIRED IMPORTED_TARGET libtirpc)
find_program(RPCGEN_EXECUTABLE rpcgen REQUIRED)

# heron_rpcgen(<interface> <outdir> <flag> <output> [<flag> <output>...]):
# runs rpcgen on lib/rpc/<interface>.x inside <outdir>, once per flag, so that
# the generated sources include the header by its bare name.  "-i 0" keeps the
# codecs off the inline fast path: its macros do not sign-extend a negative
# 32-bit long on a 64-bit host, so that path decoded other values than the
# plain one.  One command
# makes all the outputs of an interface, so parallel builds never copy the
# interface file twice at once.
function(heron_rpcgen iface outdir)
  set(xsrc ${HERON_RPC_IFACE_DIR}/${iface}.x)
  set(outputs)
  set(commands)
  set(args ${ARGN})
  file(MAKE_DIRECTORY ${outdir})
  while(args)
    list(POP_FRONT args flag output)
    list(APPEND outputs ${outdir}/${output})
    list(APPEND commands
      COMMAND ${CMAKE_COMMAND} -E remove -f ${output}
      COMMAND ${RPCGEN_EXECUTABLE} -i 0 ${flag} -o ${output} ${iface}.x)
    if(output MATCHES "\\.c$")
      # The generator declares a scratch pointer for its inline fast path in
      # every codec, used or not, and casts xdr_void to the codec type.
      set_source_files_properties(${outdir}/${output} PROPERTIES
        GENERATED TRUE COMPILE_OPTIONS "-Wno-unused-variable;-Wno-unused-parameter;-Wno-cast-function-type")
    endif()
  endwhile()
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${xsrc} ${outdir}/${iface}.x
    ${commands}
    DEPENDS ${xsrc}
    WORKING_DIRECTORY ${outdir}
    COMMENT "rpcgen ${iface}.x"
    VERBATIM)
endfunction()
set(HERON_RPC_IFACE_DIR ${CMAKE_CURRENT_LIST_DIR} CACHE INTERNAL "")

set(_rpc_out ${CMAKE_CURRENT_BINARY_DIR}/rpc)
heron_rpcgen(ternserver ${_rpc_out} -h ternserver.h -c ternserver_xdr.c -l ternserver_clnt.c)
heron_rpcgen(ingest_rpc ${_rpc_out} -h ingest_rpc.h -c ingest_rpc_xdr.c)

target_sources(heron PRIVATE
  ${_rpc_out}/ternserver.h ${_rpc_out}/ternserver_xdr.c ${_rpc_out}/ternserver_clnt.c
  ${_rpc_out}/ingest_rpc.h ${_rpc_out}/ingest_rpc_xdr.c)
target_link_libraries(heron PUBLIC PkgConfig::TIRPC)
