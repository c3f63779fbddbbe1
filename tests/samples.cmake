# Raw samples, their inputs and merging, sampling mode and the user tools.
# The test program lives beside the test servers, where the remote-procedure
# fixture finds them.
heron_test_program(samples_tests samples)
if(TARGET samples_tests)
  add_dependencies(samples_tests ingest_test_server serial_ingest raw_playback raw_dump)
  target_compile_definitions(samples_tests PRIVATE
    SERIAL_INGEST_BIN="$<TARGET_FILE:serial_ingest>"
    RAW_PLAYBACK_BIN="$<TARGET_FILE:raw_playback>"
    RAW_DUMP_BIN="$<TARGET_FILE:raw_dump>")
endif()
