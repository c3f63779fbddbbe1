// Where a raw data input's bytes come from.  A source only reads: what the
// bytes mean (framing, time tags) and what an end means (the next file, or
// the end of the input) are decided by its reader.
#ifndef HERON_BYTESOURCE_H
#define HERON_BYTESOURCE_H

#include <stddef.h>
#include <unistd.h>

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Reads at most n (> 0) bytes into p.  Returns the count; 0 at the end
  // of the current stream (a file, a closed connection); -1 with errno set,
  // EAGAIN meaning nothing now on a source that does not wait.
  virtual long read(char* p, size_t n) = 0;
};

// The descriptor held in the variable fd (which its owner may change, from
// one file to the next); -1 means no descriptor, which reads as an end.
class DescriptorSource : public ByteSource {
 public:
  explicit DescriptorSource(const int& fd) : fd_(fd) {}
  long read(char* p, size_t n) override { return fd_ < 0 ? 0 : static_cast<long>(::read(fd_, p, n)); }

 private:
  const int& fd_;
};

#endif
