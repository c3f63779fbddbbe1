# The prep.config grammar.  It reads through the site-configuration scanner
# (site/grammar.cmake) and carries its own symbol prefix ("prepconfig") so
# that it lives beside the other generated grammars of a program.
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/calconf)

bison_target(heron_prep_config_parser
  ${CMAKE_CURRENT_LIST_DIR}/prep_config.y
  ${CMAKE_CURRENT_BINARY_DIR}/calconf/prep_config_parse.cc
  DEFINES_FILE ${CMAKE_CURRENT_BINARY_DIR}/calconf/prep_config_parse.h
  COMPILE_FLAGS "-Wall")

target_sources(heron PRIVATE ${BISON_heron_prep_config_parser_OUTPUTS})
