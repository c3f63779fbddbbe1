#include "samples/FileInputs.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/Exception.h"
#include "base/logit.h"

FilesRawDataInput::FilesRawDataInput(int ternIndex_, std::vector<char*>& names, const std::vector<double>& times)
    : RawDataInput(-1, ternIndex_, 65536), fnames(names.begin(), names.end()), fTimes(times), ifile(-1) {
  if (fTimes.empty()) throw oru::Exception("FilesRawDataInput", "no start time given (nTimes > 0)");
  guard.forget();
  openNextFile();
}

FilesRawDataInput::~FilesRawDataInput() { closeCurrent(); }

// Standard input is not ours to close.
void FilesRawDataInput::closeCurrent() {
  if (fd > 0 && close(fd) != 0) logit(LOG_WARNING, "%s: close: %m", getName());
  fd = -1;
}

void FilesRawDataInput::openNextFile() {
  guard.setLimit(3);
  closeCurrent();
  const int nfiles = static_cast<int>(fnames.size());
  if (ifile + 1 >= nfiles) {
    ifile = nfiles;
    throw oru::EOFException(getName(), "openNextFile");
  }
  ++ifile;
  const std::string& fname = fnames[static_cast<size_t>(ifile)];
  setName(fname);
  if (fname == "-") {
    fd = 0;
    logit(LOG_INFO, "Opened: <stdin>");
  } else {
    fd = ::open(fname.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw oru::IOException(fname.c_str(), "open", errno);
    logit(LOG_INFO, "Opened: %s", fname.c_str());
  }
  int limit = 3;
  if (ifile < static_cast<int>(fTimes.size())) {
    guard.restart(fTimes[static_cast<size_t>(ifile)]);
    if (fd != 0) limit = 10;
  }
  guard.newFile(limit);
  framer.clear();
}
