// What the prep.config grammar works on: the scanner, the list being
// filled, the entry being built and the values of the field being read.
// Shared by SidList and the generated parser only.
#ifndef HERON_CALCONF_PREP_GRAMMAR_H
#define HERON_CALCONF_PREP_GRAMMAR_H

#include <memory>
#include <string>
#include <vector>

#include "calconf/SidList.h"
#include "site/ConfigScanner.h"

struct PrepParse {
  ConfigScanner* scanner;
  const std::string* file;  // for messages
  SidList* list;
  std::unique_ptr<SidEntry> sensor;  // the entry between its braces
  std::unique_ptr<PhaseEntry> phase;
  // Where the next word may be a keyword: 1 before an entry, 2 before a field.
  int keywordsAt;
  // The values of the field being read; emptied at each field keyword.
  std::vector<std::string> words;
  std::vector<double> numbers;
  std::vector<param_type> types;  // calibration parameters: kind of each, in order
  std::string error;              // "<file>:<line>: <what>" after a failed parse
};

// Parses the whole input: 0, or non-zero with p.error set and everything the
// parser held released.
int prepconfigparse(PrepParse& p);

// Records "<file>:<line>: <msg>" in p.error (the first one only).
void prepconfigerror(PrepParse& p, const char* msg);

#endif
