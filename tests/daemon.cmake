# The stand-in "Ingest" program that daemon-mode tests let serial_ingest start.
add_executable(Ingest standin/Ingest.cc)
set_target_properties(Ingest PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/standin)
if(TARGET ingest_tests)
  add_dependencies(ingest_tests Ingest ternserver_test_server)
  target_compile_definitions(ingest_tests PRIVATE
    INGEST_STANDIN_DIR="${CMAKE_CURRENT_BINARY_DIR}/standin"
    TEST_SERVER_DIR="${CMAKE_CURRENT_BINARY_DIR}")
endif()
if(TARGET ingest_tests)
  target_sources(ingest_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/ingest/daemon_fixture.cc)
endif()
