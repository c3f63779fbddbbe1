#include "archive/FileSequence.h"

#include <errno.h>
#include <fcntl.h>

#include "base/Exception.h"
#include "base/logit.h"

namespace heron {

FileSequenceSource::FileSequenceSource(std::vector<std::string> names)
    : DescriptorSource(-1, kBorrows), names_(std::move(names)) {}

bool FileSequenceSource::next() {
  release();
  const int n = static_cast<int>(names_.size());
  if (index_ + 1 >= n) {
    index_ = n;
    return false;
  }
  ++index_;
  if (standardInput()) {
    hold(0, kBorrows, name());
    logit(LOG_INFO, "Opened: <stdin>");
    return true;
  }
  const int fd = ::open(name().c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw oru::IOException(name().c_str(), "open", errno);
  hold(fd, kOwns, name());
  logit(LOG_INFO, "Opened: %s", name().c_str());
  return true;
}

}  // namespace heron
