# libFuzzer programs; clang only.  scripts/fuzz.sh builds and runs
# them with the sanitizers.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND TARGET heron_calib)
  add_executable(calfile_fuzz ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/calfile_fuzz.cc)
  target_compile_options(calfile_fuzz PRIVATE -fsanitize=fuzzer)
  target_link_options(calfile_fuzz PRIVATE -fsanitize=fuzzer)
  target_link_libraries(calfile_fuzz PRIVATE heron_calib heron)
endif()
