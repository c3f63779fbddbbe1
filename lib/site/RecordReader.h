// Records of the simpler site tables (did.config, archive_config): runs of
// values, each ended by ";", read through the site-configuration scanner
// (words, quoted texts, numbers; "#" comments).  Faults throw
// BadConfigurationException "<file>:<line>: <what>".
#ifndef HERON_SITE_RECORDREADER_H
#define HERON_SITE_RECORDREADER_H

#include <stdio.h>

#include <memory>
#include <string>
#include <vector>

#include "site/ConfigScanner.h"

struct RecordValue {
  bool isWord;
  std::string word;  // a word or quoted text
  double number;     // an integer, hexadecimal or real number
  bool integral;     // the number was written as an integer
};

class RecordReader {
 public:
  // Opens file (a name with "$" components); throws
  // BadConfigurationException wrapping the I/O error when it cannot.
  explicit RecordReader(const char* file);

  // The next record's values, without the ";"; false at the end of the
  // file.  A record that the end of the file cuts short is a fault.
  bool next(std::vector<RecordValue>& values);

  // Throws "<file>:<line of the last record>: <what>".
  [[noreturn]] void fail(const std::string& what) const;

  const std::string& fileName() const { return file_; }

 private:
  std::string file_;
  std::unique_ptr<FILE, int (*)(FILE*)> fp_;
  std::unique_ptr<ConfigScanner> scanner_;
  int line_ = 0;
};

#endif
