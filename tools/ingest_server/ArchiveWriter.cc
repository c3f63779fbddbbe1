#include "ArchiveWriter.h"

#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "base/logit.h"

ArchiveWriter::ArchiveWriter(const std::string& dir, const std::string& pattern, double period)
    : dir_(dir), pattern_(pattern), period_(period > 0 ? period : 86400) {}

ArchiveWriter::~ArchiveWriter() {
  if (fd_ >= 0 && !pending_.empty() && !writePending())
    logit(LOG_ERR, "%s: last write: %s; %zu bytes lost", path_.c_str(), strerror(errno), pending_.size());
  closeFile();
}

void ArchiveWriter::fail(const char* what, int err, double now) {
  ++errors_;
  if (now - lastLog_ < 60) return;
  lastLog_ = now;
  logit(LOG_ERR, "%s: %s: %s (%lu archive errors, %lu samples lost so far)",
        path_.empty() ? dir_.c_str() : path_.c_str(), what, strerror(err), errors_, lost_);
}

bool ArchiveWriter::openFile(double now) {
  time_t t = static_cast<time_t>(floor(now));
  fileEnd_ = (floor(now / period_) + 1) * period_;
  for (;; ++t) {
    struct tm tm;
    char name[512];
    if (gmtime_r(&t, &tm) == nullptr || strftime(name, sizeof name, pattern_.c_str(), &tm) == 0) {
      fail("bad file-name pattern", EINVAL, now);
      return false;
    }
    path_ = dir_ + "/" + name;
    fd_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd_ >= 0) break;
    if (errno != EEXIST || t > now + period_) {
      fail("open", errno, now);
      path_.clear();
      return false;
    }
  }
  committed_ = 0;
  logit(LOG_INFO, "archive file %s", path_.c_str());
  return true;
}

void ArchiveWriter::closeFile() {
  if (fd_ < 0) return;
  if (close(fd_) != 0) logit(LOG_ERR, "%s: close: %s", path_.c_str(), strerror(errno));
  fd_ = -1;
}

// All or nothing at the level of samples: a short or failed write, or a
// sync that fails, is cut back to the last committed sample, so the file
// always ends on a whole sample and a retry writes nothing twice.
bool ArchiveWriter::writePending() {
  size_t done = 0;
  int err = 0;
  while (done < pending_.size() && err == 0) {
    const ssize_t w = write(fd_, pending_.data() + done, pending_.size() - done);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) err = w < 0 ? errno : ENOSPC;
    else done += static_cast<size_t>(w);
  }
  if (err == 0 && fdatasync(fd_) != 0) err = errno;
  if (err != 0) {
    if (ftruncate(fd_, committed_) != 0 || lseek(fd_, committed_, SEEK_SET) < 0)
      logit(LOG_ERR, "%s: cutting back to whole samples: %s", path_.c_str(), strerror(errno));
    errno = err;
    return false;
  }
  committed_ += static_cast<off_t>(pending_.size());
  pending_.clear();
  return true;
}

void ArchiveWriter::append(const char* p, size_t n, double now) {
  if (fd_ >= 0 && now >= fileEnd_) rotate(now);
  // The file opens with its first sample, so its name tells when that came.
  if (fd_ < 0 && pending_.empty()) openFile(startFor(now));
  if (pending_.size() + n > kMaxPending) {
    ++lost_;
    return;
  }
  pending_.append(p, n);
}

double ArchiveWriter::startFor(double now) const { return nextStart_ > 0 && nextStart_ <= now ? nextStart_ : now; }

void ArchiveWriter::flush(double now) {
  if (fd_ >= 0 && now >= fileEnd_) rotate(now);
  if (pending_.empty()) return;
  // A file that follows a period boundary is named by the boundary.
  if (fd_ < 0 && !openFile(startFor(now))) return;
  if (!writePending()) fail("write", errno, now);
}

void ArchiveWriter::rotate(double now) {
  if (fd_ >= 0 && !pending_.empty() && !writePending()) fail("write", errno, now);
  if (!pending_.empty()) return;  // kept for the same file until it can be written
  nextStart_ = now >= fileEnd_ ? floor(now / period_) * period_ : 0;
  closeFile();
}
