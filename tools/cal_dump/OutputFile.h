// A file that appears under its name only when it is complete: it is
// written under a temporary name in the same folder and renamed by
// commit(); destroyed uncommitted (an error, an interrupt) it is removed.
// An empty path means standard output, which commit() only flushes.
#ifndef HERON_TOOLS_CAL_DUMP_OUTPUTFILE_H
#define HERON_TOOLS_CAL_DUMP_OUTPUTFILE_H

#include <stdio.h>

#include <string>

class OutputFile {
 public:
  // Creates the temporary file; throws oru::IOException when it cannot.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  FILE* fp() const { return fp_; }
  // The name to write under (the temporary one), for writers that open
  // the file themselves.
  const std::string& tempPath() const { return temp_; }
  // Flushes, syncs, closes and renames; throws oru::IOException.
  void commit();

  // Removes every uncommitted temporary file; for a signal handler
  // (async-signal-safe).
  static void removeAllFromSignal();

 private:
  std::string path_, temp_;
  FILE* fp_ = nullptr;
  int slot_ = -1;
};

#endif
