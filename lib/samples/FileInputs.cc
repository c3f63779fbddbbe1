#include "samples/FileInputs.h"

#include <memory>
#include <string>

#include "archive/FileSequence.h"
#include "base/Exception.h"

FilesRawDataInput::FilesRawDataInput(int ternIndex_, std::vector<char*>& names, const std::vector<double>& times)
    : RawDataInput(std::unique_ptr<ByteSource>(new heron::FileSequenceSource({names.begin(), names.end()})),
                   ternIndex_, 65536, unknown),
      fTimes(times),
      files(static_cast<heron::FileSequenceSource&>(byteSource())) {
  if (fTimes.empty()) throw oru::Exception("FilesRawDataInput", "no start time given (nTimes > 0)");
  guard.forget();
  openNextFile();
}

FilesRawDataInput::~FilesRawDataInput() = default;

// The source opens the next file; the day of its tags and how many earlier
// tags are believed in it are the input's.
void FilesRawDataInput::openNextFile() {
  guard.setLimit(3);
  if (!files.next()) throw oru::EOFException(getName(), "openNextFile");
  setName(files.name());
  int limit = 3;
  const size_t ifile = static_cast<size_t>(files.index());
  if (ifile < fTimes.size()) {
    guard.restart(fTimes[ifile]);
    if (!files.standardInput()) limit = 10;
  }
  guard.newFile(limit);
  framer.clear();
}
