#include "OutputFile.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Exception.h"

namespace {
// The temporary files alive now, for removeAllFromSignal: a fixed table,
// so the handler reads no structure that is being changed.
const int kSlots = 4;
char gTemp[kSlots][4096];
volatile sig_atomic_t gUsed[kSlots];
}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
  if (path.empty()) {
    fp_ = stdout;
    return;
  }
  temp_ = path + ".XXXXXX";
  if (temp_.size() >= sizeof gTemp[0]) throw oru::IOException(path.c_str(), "create", ENAMETOOLONG);
  const int fd = mkstemp(&temp_[0]);
  if (fd < 0) throw oru::IOException(path.c_str(), "create", errno);
  for (int i = 0; i < kSlots && slot_ < 0; ++i)
    if (!gUsed[i]) {
      memcpy(gTemp[i], temp_.c_str(), temp_.size() + 1);
      gUsed[i] = 1;
      slot_ = i;
    }
  const mode_t mask = umask(0);  // a new file's usual mode, not mkstemp's 0600
  umask(mask);
  if (fchmod(fd, 0666 & ~mask) != 0 || (fp_ = fdopen(fd, "w")) == nullptr) {
    const int err = errno;
    close(fd);
    unlink(temp_.c_str());
    if (slot_ >= 0) gUsed[slot_] = 0;
    throw oru::IOException(path.c_str(), "create", err);
  }
}

OutputFile::~OutputFile() {
  if (path_.empty() || temp_.empty()) return;
  if (fp_ != nullptr) fclose(fp_);
  unlink(temp_.c_str());
  if (slot_ >= 0) gUsed[slot_] = 0;
}

void OutputFile::commit() {
  if (path_.empty()) {
    if (fflush(stdout) != 0 || ferror(stdout)) throw oru::IOException("stdout", "write", errno);
    return;
  }
  const bool ok = fflush(fp_) == 0 && !ferror(fp_) && fsync(fileno(fp_)) == 0;
  const int err = errno;
  const bool closed = fclose(fp_) == 0;
  fp_ = nullptr;
  if (!ok || !closed) throw oru::IOException(path_.c_str(), "write", ok ? errno : err);
  if (rename(temp_.c_str(), path_.c_str()) != 0) throw oru::IOException(path_.c_str(), "rename", errno);
  if (slot_ >= 0) gUsed[slot_] = 0;
  temp_.clear();
}

void OutputFile::removeAllFromSignal() {
  for (int i = 0; i < kSlots; ++i)
    if (gUsed[i]) unlink(gTemp[i]);
}
