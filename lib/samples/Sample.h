// Raw samples and the inputs that read them.
//
// A raw sample is one time-tagged record of one channel of an acquisition
// module, in the one format shared by the modules' fast output, the ingest
// server, sockets and archive files: a 6-byte header (4-byte big-endian time
// tag, channel, data length) followed by 0..255 data bytes.
//
// A RawDataInput cuts a byte stream into samples through one buffer, checks
// the end-of-message byte of framed streams (resynchronising after a missing
// one) and turns time tags into absolute times with a guard against tags
// that jump back or forward.  Subclasses supply the byte stream: files or
// standard input, a connection from the ingest server, a socket from a
// module, a serial line carrying a module's fast output.
//
// Failures of system calls are oru::IOException naming the input and the
// step; the end of the data is oru::EOFException; SIGINT, SIGTERM or SIGHUP
// caught by the inputs' handler becomes oru::InterruptedException at the
// next read.
#ifndef HERON_SAMPLE_H
#define HERON_SAMPLE_H

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <ostream>
#include <signal.h>
#include <string>
#include <vector>

#include "rpc/ChanBits.h"
#include "base/DataArray.h"
#include "time/TTConv.h"

typedef uint32_t TIMETAG;  // as held in memory: the four bytes in wire order
typedef uint8_t CHAN_T;
typedef uint8_t SAMPLE_N;

struct ingest_connect;

class RawSample {
 public:
  static const int headLen = 6;
  // Data of up to this many bytes are copied as one fixed-width block.
  static const int quickLen = 32;
  // Longest text that format() writes, terminating NUL included.
  static const int maxTextLen = 16 + 4 + 4 + 128 * 7 + 1;

  RawSample() : tt(0), chan(0), len(0), data(8), ternIndex(0) {}

  // Number of data bytes held.
  int size() const { return data.getNbytes(); }
  // The time tag in milliseconds of the day, by the site's tag type.
  int Msecs() const { return TTConv::Msecs(static_cast<long>(tt)); }

  // Makes the data a copy of the n bytes at p.  Short data are copied as a
  // block of quickLen bytes, so that many bytes at p must be readable
  // whatever n is; the storage grows to quickLen on the first such copy and
  // is reused from then on.
  void takeData(const char* p, int n) {
    if (!data.copyBlock(p, n, quickLen)) takeLongData(p, n);
  }

  // Header as held (time tag stays big-endian), then the data bytes.
  // Throws oru::IOException("output file", "write", errno).
  void Write(FILE* fp) const;

  // The text form: milliseconds of the day, channel, data size in bytes,
  // then each whole 16-bit data word as a signed number in host order, all
  // separated by single blanks.  Writes into buf (at least maxTextLen
  // bytes), NUL-terminated; returns the length.
  int format(char* buf) const;

  TIMETAG tt;
  CHAN_T chan;
  SAMPLE_N len;
  DataArray<char> data;
  int ternIndex;  // module the sample came from; not written out

 private:
  void takeLongData(const char* p, int n);
};

// The text form of format().
std::ostream& operator<<(std::ostream& os, const RawSample& s);

class RawDataInput {
 public:
  static const long LATE_IN_DAY_MSEC = 85800000;
  static const int LATE_IN_DAY_SEC = 85800;
  static const long LT_LIMIT_MSEC = 1800000;
  static const long LT_WARN_MSEC = 360000;
  static const int N_LT_WARN = 3;
  static constexpr double GT_LIMIT_SEC = 7200.0;
  static const int N_GT_LIMIT = 3;
  static constexpr double BIGBANG = -1e37;
  static constexpr double NEXTBIGBANG = 1e37;

  // Set by the handler of SIGINT, SIGTERM and SIGHUP that every input
  // installs; shared by all inputs of the process and never cleared.
  static volatile sig_atomic_t interruptSet;

  // fd may be -1 (a subclass opens it later).  The time state starts from
  // the current clock.
  RawDataInput(int fd, int ternIndex, int bufsize);
  virtual ~RawDataInput();

  RawDataInput(const RawDataInput&) = delete;
  RawDataInput& operator=(const RawDataInput&) = delete;

  // Moves to the next source of bytes; the base has none and throws
  // oru::EOFException.
  virtual void openNextFile();
  virtual const char* getName() const { return name.c_str(); }
  // 1 when earlier times mean a new day (a live source), 0 when they are
  // to be believed (files).
  virtual int checkForMidnightRollover() const { return 1; }
  // Reads once into the free end of the buffer; the number of bytes added
  // (0 when the buffer is full, or no data now on a non-blocking input).
  virtual int readBuffer();
  // Cuts one sample from the buffered bytes: 1 a sample, 2 a sample dropped
  // for a missing end-of-message byte, 0 not enough data.
  virtual int nextSample(RawSample* samp);
  // nextSample, reading as needed: 1 a sample, 2 a framing error, 0 no data
  // now (non-blocking and datagram inputs only).
  virtual int readSample(RawSample* samp);
  // Reads on to the first sample whose time is not before t; as
  // readSample, but never 2.
  virtual int search(double t, RawSample* samp);
  // Sets or clears O_NONBLOCK on the descriptor.
  virtual void setNonBlocking(int val);

  // Moves the unread bytes to the start of the buffer.
  void shiftData();

  void setName(const char* n) { name = n; }
  void setName(const std::string& n) { name = n; }
  int getFD() const { return fd; }
  // The UTC midnight that time tags count from (t is rounded down to one).
  void SetT0day(double t);
  double GetT0day() const { return t0day; }

  // Absolute time of a time tag (wire order), or BIGBANG when the sample
  // must be dropped: impossible tags, and tags too far from the last
  // accepted one until enough of them in a row make them believable.
  double tt_to_secs(long tt) {
    const long ms = tt_to_msecs(tt);
    double t;
    if (isUsual(ms, t)) return acceptUsual(ms, t);
    return guardedSecs(ms);
  }
  static long tt_to_msecs(long tt) { return TTConv::Msecs(tt); }
  // Milliseconds of the day (0..86,399,999) to a time tag in wire order.
  static long msecs_to_tt(long msecs);

  static void sighandler(int sig);

 protected:
  // The usual case of the guard, kept inline: whether a tag (in
  // milliseconds of the day) is not earlier than the last accepted one and
  // less than two hours after it; t is then its time.  Every other tag is
  // left to guardedSecs.
  bool isUsual(long ms, double& t) const {
    if (ms < lastTT || ms >= 86400000L) return false;
    t = t0day + ms * 0.001;
    return t < lastUT + GT_LIMIT_SEC;
  }
  // Accepts such a tag; returns t.
  double acceptUsual(long ms, double t) {
    n_lt = n_gt = n_lt_warn = firstInFile = 0;
    lastTT = ms;
    lastUT = t;
    return t;
  }

  int fd;
  int ternIndex;
  std::string name;
  int nonBlocking;
  char* inputBuffer;
  char* rbp;
  char* wbp;
  char* eob;
  char* mob;
  int inputBufSize;
  double t0day;
  long lastTT;
  double lastUT;
  int n_lt;
  int n_gt;
  int n_lt_warn;
  int firstInFile;
  int datagramSocket;
  int N_LT_LIMIT;
  int _serialStreamOutOfSync;
  char _EOM;
  int _lenEOM;
  int _checkEOM;

 private:
  // The guard for every other tag, given in milliseconds of the day.
  double guardedSecs(long ms);
  double accept(long ms, double t);
  [[noreturn]] void interrupted();
  static volatile sig_atomic_t lastSignal;
};

// Files read one after another as one input; "-" is standard input.
// times[i] is the start time of file i (the time of its first sample, to
// within a couple of hours), used to tell the day of its time tags; files
// beyond the list of times carry on from the time state the previous file
// left.  At least one time is required.
//
// The class is final, so that takeUsual, which knows how these inputs
// frame their samples, is never used for a class that frames otherwise.
class FilesRawDataInput final : public RawDataInput {
 public:
  // Opens the first file.  Throws oru::IOException when it cannot be
  // opened, oru::EOFException when there are no names, and oru::Exception
  // when times is empty.
  FilesRawDataInput(int ternIndex, std::vector<char*>& fnames, const std::vector<double>& times);
  ~FilesRawDataInput() override;

  void openNextFile() override;
  int checkForMidnightRollover() const override { return 0; }
  void setNonBlocking(int) override {}

  // readSample and tt_to_secs in one, for the usual case of an archive,
  // inline and without a call: the next sample is whole in the buffer, its
  // data fit RawSample::takeData's block copy into storage samp already
  // has, and the guard accepts its time tag as it comes (not earlier than
  // the last one, less than two hours later).  Returns true with the
  // sample in samp and its time in t.  Anything else returns false having
  // taken nothing and changed neither the input nor samp; the caller then
  // reads through readSample and tt_to_secs, which reach the same result
  // the long way.
  bool takeUsual(RawSample* samp, double& t) {
    char* const p = rbp;
    // The length byte may be read before six bytes are known to be there:
    // the buffer has room past its end, and a length read from stale bytes
    // is never used, since it makes the sample longer than what is there.
    // A file has no end-of-message bytes; the end-of-data marker is longer
    // than a block copy and takes the long way.
    const int len = static_cast<unsigned char>(p[5]);
    char* const end = p + RawSample::headLen + len;
    if (end > wbp || TTConv::type() == unknown) return false;
    TIMETAG tt;
    memcpy(&tt, p, 4);
    const long ms = tt_to_msecs(static_cast<long>(tt));
    if (!isUsual(ms, t) || !samp->data.copyBlock(p + RawSample::headLen, len, RawSample::quickLen)) return false;
    acceptUsual(ms, t);
    samp->tt = tt;
    samp->chan = static_cast<CHAN_T>(p[4]);
    samp->len = static_cast<SAMPLE_N>(len);
    samp->ternIndex = ternIndex;
    rbp = end;
    return true;
  }

 private:
  void closeCurrent();

  const char** fnames;
  double* fTimes;
  int ifile;
  int nfiles;
  int nTimes;
};

// The samples of some channels of one module, sent by the ingest server to
// a socket of our own.  A connection that cannot be made is reported with
// ingest_perror and ends the process with status 1.
class IngestRawDataInput : public RawDataInput {
 public:
  // socketType 2 asks for datagrams, anything else for a stream.
  IngestRawDataInput(const char* tern, int ternIndex, const char* ingester, const ChanBits& ingestChan,
                     int socketType);
  // Tells the server that the connection ends and closes the socket.
  ~IngestRawDataInput() override;

  // Changes the channels sent; a failure is reported and ends the process
  // with status 1.
  void resetChannels(const ChanBits& bits);
  const char* getTernName() const { return ternName.c_str(); }

 private:
  std::string ingestServer;
  ingest_connect* igp;
  std::string ternName;
};

// A socket on which a module sends its samples.  The caller keeps
// ownership of the socket.
class TernRawDataInput : public RawDataInput {
 public:
  TernRawDataInput(const char* tern, int ternIndex, int sockfd);
  ~TernRawDataInput() override;
};

// A module's fast output on a serial line: each sample is followed by the
// end-of-message byte 3, which is checked.  The caller keeps the port open
// (and owns its descriptor).
class OwlFastoutRawDataInput : public RawDataInput {
 public:
  OwlFastoutRawDataInput(const char* ttyname, const char* tern, int ternIndex, int inputfd);
  ~OwlFastoutRawDataInput() override;
};

#endif
