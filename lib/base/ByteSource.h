// Where a raw data input's bytes come from.  A source only reads: what the
// bytes mean (framing, time tags) and what an end means (the next file, or
// the end of the input) are decided by its reader, which owns the source.
//
// A source that reads a descriptor holds it for its whole life: it owns the
// descriptor and closes it when it is done with it, unless it was told that
// it borrows it, in which case the descriptor stays its giver's, open, and
// the giver must keep it open while the source reads it.
#ifndef HERON_BASE_BYTESOURCE_H
#define HERON_BASE_BYTESOURCE_H

#include <stddef.h>

#include <string>

class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  virtual ~ByteSource() = default;

  // Reads at most n (> 0) bytes into p.  Returns the count; 0 at the end
  // of the current stream (a file, a closed connection); -1 with errno set,
  // EAGAIN meaning nothing now on a source that does not wait.
  virtual long read(char* p, size_t n) = 0;
  // The descriptor to poll for the next read, -1 when there is none.
  virtual int fd() const { return -1; }
  // Sets (on) or clears O_NONBLOCK on the descriptor: 0, or the errno of
  // the failure.  A source without a descriptor has nothing to set.
  virtual int setNonBlocking(bool) { return 0; }
  // After an end, moves to the next stream: true when there is one.  A
  // source of one stream has none.
  virtual bool next() { return false; }
};

// One descriptor; -1 means none, which reads as an end.  label names the
// descriptor in the warning of a failed close ("<label>: close: <reason>").
class DescriptorSource : public ByteSource {
 public:
  enum Ownership { kOwns, kBorrows };

  DescriptorSource(int fd, Ownership own, std::string label = "");
  ~DescriptorSource() override { release(); }

  long read(char* p, size_t n) override;
  int fd() const override { return fd_; }
  int setNonBlocking(bool on) override;

 protected:
  // Lets go of the descriptor (closing it when owned) and holds fd from
  // now on, under label.
  void hold(int fd, Ownership own, std::string label);
  // Lets go of the descriptor, closing it when owned; none is held after.
  void release();

 private:
  int fd_;
  Ownership own_;
  std::string label_;
};

#endif
