# The site-configuration scanner and the channel_config grammar.  Their
# symbols carry their own prefixes ("scanner", "channels") so that other
# generated scanners and grammars can live in the same program.
find_package(FLEX REQUIRED)
find_package(BISON REQUIRED)
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/site)

flex_target(heron_config_scanner
  ${CMAKE_CURRENT_LIST_DIR}/config_scanner.l
  ${CMAKE_CURRENT_BINARY_DIR}/site/config_scanner.cc)

bison_target(heron_channels_parser
  ${CMAKE_CURRENT_LIST_DIR}/channels.y
  ${CMAKE_CURRENT_BINARY_DIR}/site/channels_parse.cc
  DEFINES_FILE ${CMAKE_CURRENT_BINARY_DIR}/site/channels_parse.h
  COMPILE_FLAGS "-Wall")

target_sources(heron PRIVATE
  ${FLEX_heron_config_scanner_OUTPUTS}
  ${BISON_heron_channels_parser_OUTPUTS})

# The scanner routes flex's own fatal errors through logit, which leaves
# flex's built-in reporter unused.
set_source_files_properties(${FLEX_heron_config_scanner_OUTPUTS}
  PROPERTIES COMPILE_OPTIONS -Wno-unused-function)
