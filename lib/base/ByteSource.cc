#include "base/ByteSource.h"

#include <fcntl.h>
#include <errno.h>
#include <unistd.h>

#include "base/logit.h"

DescriptorSource::DescriptorSource(int fd, Ownership own, std::string label)
    : fd_(fd), own_(own), label_(std::move(label)) {}

long DescriptorSource::read(char* p, size_t n) { return fd_ < 0 ? 0 : static_cast<long>(::read(fd_, p, n)); }

int DescriptorSource::setNonBlocking(bool on) {
  const int flags = fcntl(fd_, F_GETFL);
  if (flags < 0) return errno;
  const int want = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  return want != flags && fcntl(fd_, F_SETFL, want) < 0 ? errno : 0;
}

void DescriptorSource::hold(int fd, Ownership own, std::string label) {
  release();
  fd_ = fd;
  own_ = own;
  label_ = std::move(label);
}

void DescriptorSource::release() {
  if (fd_ >= 0 && own_ == kOwns && close(fd_) != 0) logit(LOG_WARNING, "%s: close: %m", label_.c_str());
  fd_ = -1;
}
