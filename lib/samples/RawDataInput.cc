#include "samples/RawDataInput.h"

#include <arpa/inet.h>
#include <errno.h>

#include "base/Exception.h"
#include "base/clock.h"
#include "base/logit.h"

volatile sig_atomic_t RawDataInput::interruptSet = 0;
volatile sig_atomic_t RawDataInput::lastSignal = 0;

RawDataInput::RawDataInput(int fd_, int ternIndex_, int bufsize)
    : ternIndex(ternIndex_),
      name("unknown"),
      nonBlocking(0),
      inputBufSize(bufsize),
      framer(bufsize),
      guard(unknown, heron::wallSeconds()),
      source(new DescriptorSource(fd_, DescriptorSource::kBorrows)) {
  installHandler();
}

RawDataInput::RawDataInput(std::unique_ptr<ByteSource> source_, int ternIndex_, int bufsize, TTtype type)
    : ternIndex(ternIndex_),
      name("unknown"),
      nonBlocking(0),
      inputBufSize(bufsize),
      framer(bufsize),
      guard(type, heron::wallSeconds()),
      source(std::move(source_)) {
  installHandler();
}

RawDataInput::~RawDataInput() = default;

void RawDataInput::installHandler() {
  struct sigaction act;
  memset(&act, 0, sizeof act);
  act.sa_handler = sighandler;
  sigemptyset(&act.sa_mask);
  act.sa_flags = 0;
  const int sigs[] = {SIGINT, SIGTERM, SIGHUP};
  for (int sig : sigs)
    if (sigaction(sig, &act, nullptr) != 0) logit(LOG_ERR, "RawDataInput: sigaction(%d): %m", sig);
}

// The handler only records what happened: the reader logs it and stops at
// its next read, outside signal context.
void RawDataInput::sighandler(int sig) {
  lastSignal = sig;
  interruptSet = 1;
}

void RawDataInput::interrupted() {
  logit(LOG_INFO, "sighandler:  signal= %d", static_cast<int>(lastSignal));
  throw oru::InterruptedException(getName(), "readBuffer");
}

void RawDataInput::openNextFile() {
  if (!source->next()) throw oru::EOFException(getName(), "RawDataInput::openNextFile");
  framer.clear();
}

int RawDataInput::readBuffer() {
  if (interruptSet) interrupted();
  if (framer.full()) return 0;
  long n;
  // A source past its last stream reads as an end: openNextFile reports
  // the end again.
  while ((n = framer.fill(*source)) < 1) {
    if (interruptSet) interrupted();
    if (n < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
      // A signal we do not handle ourselves interrupted the read: retry.
      if (errno == EINTR) continue;
      throw oru::IOException(getName(), "readBuffer", errno);
    }
    if (nonBlocking) return 0;
    openNextFile();
  }
  return static_cast<int>(n);
}

int RawDataInput::nextSample(RawSample* samp) {
  const Framer::Result r = framer.next(samp, ternIndex);
  if (r == Framer::EndOfData) throw oru::EOFException(getName(), "nextSample");
  return r;
}

int RawDataInput::readSample(RawSample* samp) {
  for (;;) {
    const int r = nextSample(samp);
    if (r > 0) return r;
    if (readBuffer() == 0) return 0;
  }
}

int RawDataInput::search(double t, RawSample* samp) {
  for (;;) {
    const int r = readSample(samp);
    if (r == Framer::FramingError) continue;
    if (r == Framer::Sample && tt_to_secs(static_cast<long>(samp->tt)) < t) continue;
    return r;
  }
}

void RawDataInput::setNonBlocking(int val) {
  nonBlocking = val;
  const int err = source->setNonBlocking(val != 0);
  if (err != 0) throw oru::IOException(getName(), "setNonBlocking fcntl", err);
}

long RawDataInput::msecs_to_tt(long msecs) {
  // The first conversion settles the site's tag type.
  if (TTConv::type() == unknown) TTConv::Msecs(0);
  uint32_t v = static_cast<uint32_t>(msecs);
  if (TTConv::type() == wierd12)
    v = (static_cast<uint32_t>(msecs / 1000) << 12) | static_cast<uint32_t>(msecs % 1000);
  return static_cast<long>(htonl(v));
}
