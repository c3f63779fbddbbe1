// Files read one after another as one input; "-" is standard input.  The
// files are the stream of a file-sequence source (archive/FileSequence.h);
// this input keeps the time state across them.  times[i] is the start time
// of file i (the time of its first sample, to within a couple of hours),
// used to tell the day of its time tags; files beyond the list of times
// carry on from the time state the previous file left.  At least one time
// is required.  Earlier time tags in a file are believed after three of
// them in a row, or ten in a named file that has a start time.
#ifndef HERON_FILEINPUTS_H
#define HERON_FILEINPUTS_H

#include <vector>

#include "samples/RawDataInput.h"

namespace heron {
class FileSequenceSource;
}

class FilesRawDataInput : public RawDataInput {
 public:
  // Opens the first file.  Throws oru::IOException when it cannot be
  // opened, oru::EOFException when there are no names, and oru::Exception
  // when times is empty.
  FilesRawDataInput(int ternIndex, std::vector<char*>& fnames, const std::vector<double>& times);
  ~FilesRawDataInput() override;

  void openNextFile() override;
  int checkForMidnightRollover() const override { return 0; }
  void setNonBlocking(int) override {}

 private:
  std::vector<double> fTimes;
  heron::FileSequenceSource& files;
};

#endif
