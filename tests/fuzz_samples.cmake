# libFuzzer programs for the sample framer and the time-tag guard; clang only.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  foreach(name framer_fuzz timetag_fuzz)
    add_executable(${name} ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/${name}.cc)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
    target_link_libraries(${name} PRIVATE heron)
  endforeach()
endif()
