// A source of raw samples: a byte source (ByteSource.h) cut into samples by
// a Framer, with time tags turned into absolute times by a TimeTagGuard.
// Every input reads through the byte source it owns; the subclasses
// (FileInputs.h, StreamInputs.h) only choose it: a file sequence (files or
// standard input), a socket from a module, a serial line, a connection to
// the ingest server.  Moving to the next file and the descriptor's
// blocking mode are the source's.
//
// Failures of system calls are oru::IOException naming the input and the
// step; the end of the data is oru::EOFException; SIGINT, SIGTERM or SIGHUP
// caught by the inputs' handler becomes oru::InterruptedException at the
// next read.
//
// Signals, for every program of the system: each input installs the same
// handler for SIGINT, SIGTERM and SIGHUP, which only sets interruptSet, and
// a tool that reads inputs stops on that one flag.  A tool may catch the
// signals itself until its inputs are open, and then sets the same flag
// (cal_dump does, to end at once on a second signal).  A daemon takes the
// signals it handles through its reactor (base/Reactor.h), which blocks
// them: the inputs' handler never runs there, so a SIGHUP that asks Ingest
// for a new archive file never ends its reading.
#ifndef HERON_RAWDATAINPUT_H
#define HERON_RAWDATAINPUT_H

#include <signal.h>
#include <string.h>

#include <memory>
#include <string>

#include "base/ByteSource.h"
#include "samples/Framer.h"
#include "samples/RawSample.h"
#include "samples/TimeTagGuard.h"

class RawDataInput {
 public:
  static const long LATE_IN_DAY_MSEC = TimeTagGuard::LATE_IN_DAY_MSEC;
  static const int LATE_IN_DAY_SEC = TimeTagGuard::LATE_IN_DAY_SEC;
  static const long LT_LIMIT_MSEC = TimeTagGuard::LT_LIMIT_MSEC;
  static const long LT_WARN_MSEC = TimeTagGuard::LT_WARN_MSEC;
  static const int N_LT_WARN = TimeTagGuard::N_LT_WARN;
  static constexpr double GT_LIMIT_SEC = TimeTagGuard::GT_LIMIT_SEC;
  static const int N_GT_LIMIT = TimeTagGuard::N_GT_LIMIT;
  static constexpr double BIGBANG = TimeTagGuard::BIGBANG;
  static constexpr double NEXTBIGBANG = 1e37;

  // Set by the handler of SIGINT, SIGTERM and SIGHUP that every input
  // installs; shared by all inputs of the process and never cleared.
  static volatile sig_atomic_t interruptSet;

  // Reads the descriptor fd, which stays the caller's (never closed here);
  // -1 reads as an end.  The time state starts from the current clock;
  // tags are of the site's type.
  RawDataInput(int fd, int ternIndex, int bufsize);
  // Reads source, which it owns, tags of the given type.
  RawDataInput(std::unique_ptr<ByteSource> source, int ternIndex, int bufsize, TTtype type);
  virtual ~RawDataInput();

  RawDataInput(const RawDataInput&) = delete;
  RawDataInput& operator=(const RawDataInput&) = delete;

  // Moves the source to its next stream (ByteSource::next); throws
  // oru::EOFException when it has none.
  virtual void openNextFile();
  virtual const char* getName() const { return name.c_str(); }
  // 1 when earlier times mean a new day (a live source), 0 when they are
  // to be believed (files).
  virtual int checkForMidnightRollover() const { return 1; }
  // Reads once into the free end of the buffer; the number of bytes added
  // (0 when the buffer is full, or no data now on a non-blocking input).
  virtual int readBuffer();
  // Cuts one sample from the buffered bytes: Framer::Sample (1),
  // Framer::FramingError (2, a sample dropped for a missing end-of-message
  // byte) or Framer::NoData (0, not enough data).
  virtual int nextSample(RawSample* samp);
  // nextSample, reading as needed: 1 a sample, 2 a framing error, 0 no data
  // now (non-blocking and datagram inputs only).
  virtual int readSample(RawSample* samp);
  // Reads on to the first sample whose time is not before t; as
  // readSample, but never 2.
  virtual int search(double t, RawSample* samp);
  // Sets or clears O_NONBLOCK on the source's descriptor; a failure is
  // oru::IOException.
  virtual void setNonBlocking(int val);

  // Moves the unread bytes to the start of the buffer.
  void shiftData() { framer.shiftData(); }

  void setName(const char* n) { name = n; }
  void setName(const std::string& n) { name = n; }
  // The source's descriptor, to poll; -1 when it has none.
  int getFD() const { return source->fd(); }
  // The UTC midnight that time tags count from (t is rounded down to one).
  void SetT0day(double t) { guard.SetT0day(t); }
  double GetT0day() const { return guard.GetT0day(); }

  // Absolute time of a time tag (wire order), or BIGBANG when the sample
  // must be dropped.
  double tt_to_secs(long tt) {
    const long ms = guard.msecs(tt);
    double t;
    if (guard.isUsual(ms, t)) return guard.acceptUsual(ms, t);
    return guard.guarded(ms, getName(), checkForMidnightRollover() != 0);
  }
  static long tt_to_msecs(long tt) { return TTConv::Msecs(tt); }
  // Milliseconds of the day (0..86,399,999) to a time tag in wire order.
  static long msecs_to_tt(long msecs);

  static void sighandler(int sig);

  // readSample and tt_to_secs in one for the usual case, inline: the next
  // sample is whole in the buffer of a stream without end-of-message
  // bytes, its data fit RawSample::takeData's block copy into storage samp
  // already has (so never the end-of-data marker), and the guard accepts
  // its tag as it comes.  Returns true with the sample in samp and its time
  // in t.  Anything else returns false having taken nothing from the
  // input; the caller then reads through readSample and tt_to_secs, which
  // reach the same result the long way (for every input that frames
  // through this class's nextSample, as all of the library's do).
  bool takeUsual(RawSample* samp, double& t) {
    int len;
    const char* const p = framer.peekWhole(len);
    if (p == nullptr) return false;
    const long ms = guard.msecs(static_cast<long>(RawSample::tagAt(p)));
    if (!guard.isUsual(ms, t) || !samp->data.copyBlock(p + RawSample::headLen, len, RawSample::quickLen)) return false;
    guard.acceptUsual(ms, t);
    samp->decodeHeader(p);
    samp->ternIndex = ternIndex;
    framer.take(len);
    return true;
  }

 protected:
  // Reads `s` from now on; the source read so far is dropped.
  void setSource(std::unique_ptr<ByteSource> s) { source = std::move(s); }
  ByteSource& byteSource() const { return *source; }

  int ternIndex;
  std::string name;
  int nonBlocking;
  int inputBufSize;
  Framer framer;
  TimeTagGuard guard;

 private:
  [[noreturn]] void interrupted();
  static void installHandler();
  static volatile sig_atomic_t lastSignal;

  std::unique_ptr<ByteSource> source;
};

#endif
