// The files of an archive (or any raw-sample files) read one after another
// as one byte source: the stream of a raw data input that reads files
// (samples/FileInputs.h).  "-" is standard input, read and never closed;
// every file opened here is closed when the next one opens or the source
// ends.
#ifndef HERON_ARCHIVE_FILESEQUENCE_H
#define HERON_ARCHIVE_FILESEQUENCE_H

#include <string>
#include <vector>

#include "base/ByteSource.h"

namespace heron {

class FileSequenceSource : public DescriptorSource {
 public:
  // Opens nothing yet: the first next() opens the first file.
  explicit FileSequenceSource(std::vector<std::string> names);

  // Closes the current file and opens the next one, logging "Opened:
  // <name>" ("<stdin>" for "-"); false past the last, where the source
  // stays and reads as an end.  Throws oru::IOException (the name, "open")
  // when the file cannot be opened.
  bool next() override;

  // The position of the current file in the list: -1 before the first,
  // the list's size past the last.
  int index() const { return index_; }
  // The name of the current file as given.
  const std::string& name() const { return names_[static_cast<size_t>(index_)]; }
  bool standardInput() const { return name() == "-"; }

 private:
  std::vector<std::string> names_;
  int index_ = -1;
};

}  // namespace heron

#endif
