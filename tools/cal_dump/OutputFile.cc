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

namespace {
// Where the output goes for a name given: the name itself, or for a
// symbolic link the regular file it leads to.  Sets *direct for a device
// or FIFO, which is written as it is.  Throws oru::IOException for what
// may not be replaced or written.
std::string target(const std::string& path, bool* direct) {
  struct stat st;
  *direct = false;
  if (lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return path;
    throw oru::IOException(path.c_str(), "create", errno);
  }
  if (S_ISREG(st.st_mode)) return path;
  if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode) || S_ISFIFO(st.st_mode)) {
    *direct = true;
    return path;
  }
  if (S_ISDIR(st.st_mode)) throw oru::IOException(path.c_str(), "create", EISDIR);
  if (!S_ISLNK(st.st_mode)) throw oru::IOException(path.c_str(), "create", "neither a file, a device nor a FIFO");
  char* real = realpath(path.c_str(), nullptr);
  const bool regular = real != nullptr && stat(real, &st) == 0 && S_ISREG(st.st_mode) && access(real, W_OK) == 0;
  const std::string resolved = real != nullptr ? real : "";
  free(real);
  if (!regular)
    throw oru::IOException(path.c_str(), "create", "a symbolic link that leads to no regular file one may write");
  return resolved;
}
}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
  if (path.empty()) {
    fp_ = stdout;
    return;
  }
  bool direct;
  const std::string final = target(path, &direct);
  if (direct) {
    temp_ = path;
    if ((fp_ = fopen(path.c_str(), "w")) == nullptr) throw oru::IOException(path.c_str(), "open", errno);
    direct_ = true;
    return;
  }
  path_ = final;
  temp_ = final + ".XXXXXX";
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
  if (direct_) return;
  unlink(temp_.c_str());
  if (slot_ >= 0) gUsed[slot_] = 0;
}

void OutputFile::commit() {
  if (path_.empty()) {
    if (fflush(stdout) != 0 || ferror(stdout)) throw oru::IOException("stdout", "write", errno);
    return;
  }
  // A device or FIFO has nothing to sync (fsync of a terminal fails).
  const bool ok = fflush(fp_) == 0 && !ferror(fp_) && (direct_ || fsync(fileno(fp_)) == 0);
  const int err = errno;
  const bool closed = fclose(fp_) == 0;
  fp_ = nullptr;
  if (!ok || !closed) throw oru::IOException(path_.c_str(), "write", ok ? errno : err);
  if (!direct_ && rename(temp_.c_str(), path_.c_str()) != 0) throw oru::IOException(path_.c_str(), "rename", errno);
  if (slot_ >= 0) gUsed[slot_] = 0;
  temp_.clear();
}

void OutputFile::removeAllFromSignal() {
  for (int i = 0; i < kSlots; ++i)
    if (gUsed[i]) unlink(gTemp[i]);
}
