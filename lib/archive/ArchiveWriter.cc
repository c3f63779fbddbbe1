#include "archive/ArchiveWriter.h"

#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "archive/ArchiveNaming.h"
#include "base/Exception.h"
#include "base/logit.h"

bool makeDirectories(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return true;
    errno = ENOTDIR;
    return false;
  }
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  const size_t slash = p.rfind('/');
  if (slash != std::string::npos && slash > 0 && !makeDirectories(p.substr(0, slash))) return false;
  return mkdir(p.c_str(), 0755) == 0 || errno == EEXIST;
}

ArchiveWriter::ArchiveWriter(const std::string& dir, const std::string& pattern, double period)
    : dir_(dir), pattern_(pattern), period_(period > 0 ? period : 86400) {
  if (!heron::staysInside(pattern))
    throw BadConfigurationException("archive_config: file-name pattern \"" + pattern +
                                    "\" names files outside the raw-data directory " + dir);
}

ArchiveWriter::~ArchiveWriter() {
  if (fd_ >= 0 && !pending_.empty() && !writePending())
    logit(LOG_ERR, "%s: last write: %s; %zu bytes lost", path_.c_str(), strerror(errno), pending_.size());
  closeFile();
}

void ArchiveWriter::prepare() const {
  if (!makeDirectories(dir_)) throw oru::IOException(dir_.c_str(), "making the raw-data directory", errno);
  std::string probe = dir_ + "/.Ingest-probe-XXXXXX";
  const int fd = mkostemp(&probe[0], O_CLOEXEC);
  if (fd < 0) throw oru::IOException(dir_.c_str(), "creating a file in the raw-data directory", errno);
  const int err = close(fd) != 0 ? errno : unlink(probe.c_str()) != 0 ? errno : 0;
  if (err != 0) throw oru::IOException(probe.c_str(), "closing and removing a probe file", err);
}

void ArchiveWriter::fail(const char* what, int err, double now) {
  ++errors_;
  failure_ = (path_.empty() ? dir_ : path_) + ": " + what + ": " + strerror(err);
  if (now - lastLog_ < 60) return;
  lastLog_ = now;
  logit(LOG_ERR, "%s (%lu archive errors, %lu samples lost so far)", failure_.c_str(), errors_, lost_);
}

bool ArchiveWriter::openFile(double now) {
  const time_t t = static_cast<time_t>(floor(now));
  if (t == opened_) return false;  // one new file a second: the next flush tries again
  std::string name;
  if (!heron::nameOfStart(pattern_, static_cast<double>(t), &name)) {
    fail("bad file-name pattern", EINVAL, now);
    return false;
  }
  const std::string path = dir_ + "/" + name;
  fd_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd_ < 0) {
    // A name taken (a restart within its span) is no failure: it frees
    // when the clock reaches the next name.
    if (errno != EEXIST) fail("open", errno, now);
    if (errno == ENOENT) makeDirectories(dir_);
    return false;
  }
  path_ = path;
  opened_ = static_cast<double>(t);
  fileEnd_ = (floor(now / period_) + 1) * period_;
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
  failure_.clear();
  return true;
}

// A file without a link is in a removed directory (or was removed itself):
// what it holds is out of reach, so a new file starts in the directory,
// made again.
bool ArchiveWriter::fileRemoved(double now) {
  struct stat st;
  if (fstat(fd_, &st) != 0) {
    fail("fstat", errno, now);
    return false;
  }
  if (st.st_nlink > 0) return false;
  logit(LOG_ERR, "%s: removed while being written; making %s again", path_.c_str(), dir_.c_str());
  closeFile();
  if (!makeDirectories(dir_)) fail("making the raw-data directory again", errno, now);
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
  if (fd_ >= 0 && fileRemoved(now)) opened_ = -1;  // its replacement may open at once
  if (pending_.empty()) return;
  // A file that follows a period boundary is named by the boundary.
  if (fd_ < 0 && !openFile(startFor(now))) return;
  if (!writePending()) fail("write", errno, now);
}

void ArchiveWriter::rotate(double now) {
  if (fd_ >= 0 && now < fileEnd_ && floor(now) == opened_) return;
  if (fd_ >= 0 && !pending_.empty() && !writePending()) fail("write", errno, now);
  if (!pending_.empty()) return;  // kept for the same file until it can be written
  nextStart_ = now >= fileEnd_ ? floor(now / period_) * period_ : 0;
  closeFile();
}
