// A file that appears under its name only when it is complete: it is
// written under a temporary name in the same folder and renamed by
// commit(); destroyed uncommitted (an error, an interrupt) it is removed.
// An empty path means standard output, which commit() only flushes.
//
// Only a regular file or a new name is replaced that way.  A device or a
// FIFO is written directly (nothing is renamed onto it, so /dev/null stays
// a device); a symbolic link is followed when it leads to a regular file
// one may write, whose folder then takes the temporary file, and refused
// otherwise, as are folders and sockets.
#ifndef HERON_TOOLS_CAL_DUMP_OUTPUTFILE_H
#define HERON_TOOLS_CAL_DUMP_OUTPUTFILE_H

#include <stdio.h>

#include <string>

class OutputFile {
 public:
  // Creates the temporary file (opens a device or FIFO); throws
  // oru::IOException when it cannot or may not.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  FILE* fp() const { return fp_; }
  // The name to write under (the temporary one, or the device or FIFO), for
  // writers that open the file themselves.
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
  bool direct_ = false;  // a device or FIFO, written as it is
};

#endif
