# Test servers of the remote-procedure protocols (a module server, an ingest
# server and a misbehaving server), and the rpc_tests program.  The servers are
# built beside the test programs, where tests/lib/rpc_fixture.h finds them.
set(_rpcsvc_out ${CMAKE_CURRENT_BINARY_DIR}/rpcsvc)
heron_rpcgen(ternserver ${_rpcsvc_out} -m ternserver_svc.c)

add_library(rpc_test_server_loop STATIC rpc/rpc_server_loop.cc)
target_link_libraries(rpc_test_server_loop PUBLIC heron)

add_executable(ternserver_test_server rpc/ternserver_test_server.cc ${_rpcsvc_out}/ternserver_svc.c)
target_include_directories(ternserver_test_server PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/rpc)
target_link_libraries(ternserver_test_server PRIVATE rpc_test_server_loop heron)

heron_rpcgen(ingest_rpc ${_rpcsvc_out} -m ingest_rpc_svc.c)
add_executable(ingest_test_server rpc/ingest_test_server.cc ${_rpcsvc_out}/ingest_rpc_svc.c)
target_include_directories(ingest_test_server PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/rpc)
target_link_libraries(ingest_test_server PRIVATE rpc_test_server_loop heron)

add_executable(rpc_junk_server rpc/rpc_junk_server.cc)
target_link_libraries(rpc_junk_server PRIVATE rpc_test_server_loop heron)

heron_test_program(rpc_tests rpc)
add_dependencies(rpc_tests ternserver_test_server ingest_test_server rpc_junk_server)
