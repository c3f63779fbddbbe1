# Test servers of the remote-procedure protocols, and the rpc_tests program.
# The servers are built beside the test programs, where tests/lib/rpc_fixture.h
# finds them.
set(_rpcsvc_out ${CMAKE_CURRENT_BINARY_DIR}/rpcsvc)
heron_rpcgen(ternserver ${_rpcsvc_out} -m ternserver_svc.c)

add_library(rpc_test_server_loop STATIC rpc/rpc_server_loop.cc)
target_link_libraries(rpc_test_server_loop PUBLIC heron)

add_executable(ternserver_test_server rpc/ternserver_test_server.cc ${_rpcsvc_out}/ternserver_svc.c)
target_include_directories(ternserver_test_server PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/rpc)
target_link_libraries(ternserver_test_server PRIVATE rpc_test_server_loop heron)

heron_test_program(rpc_tests rpc)
add_dependencies(rpc_tests ternserver_test_server)
