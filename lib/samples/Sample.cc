#include "samples/Sample.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>

#include "base/Exception.h"
#include "time/UTime.h"
#include "rpc/ingest_client.h"
#include "base/logit.h"
#include "base/fatal.h"

// ---------------------------------------------------------------- RawSample

void RawSample::Write(FILE* fp) const {
  unsigned char head[headLen];
  memcpy(head, &tt, 4);
  head[4] = chan;
  head[5] = len;
  if (fwrite(head, 1, headLen, fp) != static_cast<size_t>(headLen))
    throw oru::IOException("output file", "write", errno);
  const int n = size();
  if (n > 0 && fwrite(static_cast<const char*>(data), 1, static_cast<size_t>(n), fp) != static_cast<size_t>(n))
    throw oru::IOException("output file", "write", errno);
}

// The first short copy into fresh storage, and every long one.
void RawSample::takeLongData(const char* p, int n) {
  if (n <= quickLen) {
    data.expand(quickLen);
    takeData(p, n);
  } else {
    data.copyFrom(p, n);
  }
}

namespace {
// Decimal text of v at p; returns the position after it.
char* putInt(char* p, long v) {
  char tmp[24];
  int n = 0;
  unsigned long u = v < 0 ? 0UL - static_cast<unsigned long>(v) : static_cast<unsigned long>(v);
  do {
    tmp[n++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  if (v < 0) *p++ = '-';
  while (n > 0) *p++ = tmp[--n];
  return p;
}
}  // namespace

int RawSample::format(char* buf) const {
  char* p = putInt(buf, Msecs());
  *p++ = ' ';
  p = putInt(p, chan);
  *p++ = ' ';
  const int n = size();
  p = putInt(p, n);
  const char* d = data;
  for (int i = 0; i + 1 < n; i += 2) {
    int16_t w;
    memcpy(&w, d + i, 2);
    *p++ = ' ';
    p = putInt(p, w);
  }
  *p = '\0';
  return static_cast<int>(p - buf);
}

std::ostream& operator<<(std::ostream& os, const RawSample& s) {
  char buf[RawSample::maxTextLen];
  const int n = s.format(buf);
  return os.write(buf, n);
}

// ------------------------------------------------------------- RawDataInput

volatile sig_atomic_t RawDataInput::interruptSet = 0;
volatile sig_atomic_t RawDataInput::lastSignal = 0;

namespace {
const long kMsecsPerDay = 86400000L;

// Time of a log message, as "%Y %b %d j%j %H:%M:%S".
struct TimeText {
  explicit TimeText(double t) { UTime(t).to_charstar(text, sizeof text, "%Y %b %d j%j %H:%M:%S"); }
  char text[64];
};
}  // namespace

RawDataInput::RawDataInput(int fd_, int ternIndex_, int bufsize)
    : fd(fd_),
      ternIndex(ternIndex_),
      name("unknown"),
      nonBlocking(0),
      inputBuffer(nullptr),
      rbp(nullptr),
      wbp(nullptr),
      eob(nullptr),
      mob(nullptr),
      inputBufSize(bufsize),
      t0day(0),
      lastTT(0),
      lastUT(0),
      n_lt(0),
      n_gt(0),
      n_lt_warn(0),
      firstInFile(0),
      datagramSocket(0),
      N_LT_LIMIT(3),
      _serialStreamOutOfSync(0),
      _EOM(0),
      _lenEOM(0),
      _checkEOM(0) {
  // One sample with its end-of-message byte must fit in half the buffer,
  // or an incomplete sample could never be completed.
  if (bufsize < 2 * (RawSample::headLen + 255 + 1)) throw std::invalid_argument("RawDataInput: buffer too small");

  struct sigaction act;
  memset(&act, 0, sizeof act);
  act.sa_handler = sighandler;
  sigemptyset(&act.sa_mask);
  act.sa_flags = 0;
  const int sigs[] = {SIGINT, SIGTERM, SIGHUP};
  for (int sig : sigs)
    if (sigaction(sig, &act, nullptr) != 0) logit(LOG_ERR, "RawDataInput: sigaction(%d): %m", sig);

  // The bytes past the end let a sample's data be copied as one block of
  // RawSample::quickLen bytes however short it is (RawSample::takeData),
  // and the end of a sample be computed from its length byte before the
  // bytes are known to be there (FilesRawDataInput::takeUsual): both stay
  // within the allocation.
  static_assert(RawSample::quickLen <= RawSample::headLen + 255, "a block copy must stay within the room");
  inputBuffer = new char[static_cast<size_t>(bufsize) + RawSample::headLen + 255]();
  rbp = wbp = inputBuffer;
  eob = inputBuffer + bufsize;
  mob = inputBuffer + bufsize / 2;

  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  const double t = static_cast<double>(now.tv_sec) + now.tv_nsec * 1e-9;
  t0day = floor(t / 86400.0) * 86400.0;
  lastTT = static_cast<long>(1000.0 * fmod(t, 86400.0));
  lastUT = t;
}

RawDataInput::~RawDataInput() { delete[] inputBuffer; }

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

void RawDataInput::openNextFile() { throw oru::EOFException(getName(), "RawDataInput::openNextFile"); }

int RawDataInput::readBuffer() {
  if (interruptSet) interrupted();
  if (wbp == eob) return 0;
  // An input past its last file has no descriptor: that is its end again.
  if (fd < 0) openNextFile();
  ssize_t n;
  while ((n = ::read(fd, wbp, static_cast<size_t>(eob - wbp))) < 1) {
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
  wbp += n;
  return static_cast<int>(n);
}

int RawDataInput::nextSample(RawSample* samp) {
  while (_serialStreamOutOfSync && rbp < wbp) {
    if (*rbp++ == _EOM) _serialStreamOutOfSync = 0;
  }
  const long avail = wbp - rbp;
  const int len = avail >= RawSample::headLen ? static_cast<unsigned char>(rbp[5]) : 0;
  if (avail < RawSample::headLen || avail < _lenEOM + RawSample::headLen + len) {
    if (datagramSocket) {
      // A datagram never continues in the next read.
      rbp = wbp = inputBuffer;
    } else if (wbp > mob) {
      shiftData();
    }
    return 0;
  }
  memcpy(&samp->tt, rbp, 4);
  samp->chan = static_cast<unsigned char>(rbp[4]);
  samp->len = static_cast<unsigned char>(len);
  samp->takeData(rbp + RawSample::headLen, len);
  samp->ternIndex = ternIndex;
  rbp += RawSample::headLen + len;

  if (_checkEOM && *rbp++ != _EOM) {
    // Hunt for the next end-of-message byte from one past the start of
    // the bad sample.
    _serialStreamOutOfSync = 1;
    rbp -= len + RawSample::headLen;
    return 2;
  }

  if (samp->chan == 3 && len == 255) {
    const unsigned char* d = samp->data;
    int i = 0;
    while (i < 255 && d[i] == i) ++i;
    if (i == 255) throw oru::EOFException(getName(), "nextSample");
  }
  return 1;
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
    if (r == 2) continue;
    if (r == 1 && tt_to_secs(static_cast<long>(samp->tt)) < t) continue;
    return r;
  }
}

void RawDataInput::setNonBlocking(int val) {
  nonBlocking = val;
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) throw oru::IOException(getName(), "setNonBlocking fcntl", errno);
  const int want = val ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  if (want != flags && fcntl(fd, F_SETFL, want) < 0) throw oru::IOException(getName(), "setNonBlocking fcntl", errno);
}

void RawDataInput::shiftData() {
  const long n = wbp - rbp;
  if (n > 0 && rbp != inputBuffer) memmove(inputBuffer, rbp, static_cast<size_t>(n));
  rbp = inputBuffer;
  wbp = inputBuffer + n;
}

void RawDataInput::SetT0day(double t) { t0day = floor(t / 86400.0) * 86400.0; }

long RawDataInput::msecs_to_tt(long msecs) {
  // The first conversion settles the site's tag type.
  if (TTConv::type() == unknown) TTConv::Msecs(0);
  uint32_t v = static_cast<uint32_t>(msecs);
  if (TTConv::type() == wierd12)
    v = (static_cast<uint32_t>(msecs / 1000) << 12) | static_cast<uint32_t>(msecs % 1000);
  return static_cast<long>(htonl(v));
}

double RawDataInput::accept(long ms, double t) {
  lastTT = ms;
  lastUT = t;
  return t;
}

double RawDataInput::guardedSecs(long ms) {
  if (ms > kMsecsPerDay || ms < 0) return BIGBANG;
  if (ms == kMsecsPerDay) ms = 0;
  double t = t0day + ms * 0.001;

  if (ms >= lastTT || t >= lastUT) {
    if (t < lastUT + GT_LIMIT_SEC) {
      n_lt = n_gt = n_lt_warn = firstInFile = 0;
      return accept(ms, t);
    }
    n_lt = n_lt_warn = 0;
    if (n_gt > N_GT_LIMIT) {
      n_gt = 0;
      return accept(ms, t);
    }
    if (t > lastUT + LATE_IN_DAY_SEC) {
      // A rollover was assumed too early: the tag belongs to the day before.
      t -= 86400.0;
      t0day -= 86400.0;
      n_gt = firstInFile = 0;
      return accept(ms, t);
    }
    ++n_gt;
    logit(LOG_ERR, "%s: sample time %s: %d later samples tossed", getName(), TimeText(t).text, n_gt);
    return BIGBANG;
  }

  n_gt = 0;
  if (ms < lastTT - LATE_IN_DAY_MSEC) {
    t0day += 86400.0;
    t += 86400.0;
    n_lt = n_lt_warn = 0;
    logit(LOG_INFO, "%s: midnight rollover. Sample time: %s", getName(), TimeText(t).text);
    return accept(ms, t);
  }
  if (n_lt > N_LT_LIMIT) {
    if (checkForMidnightRollover() == 0) {
      logit(LOG_INFO, "%s: sample time %s: %d earlier samples. Guess it is time to believe them", getName(),
            TimeText(t).text, n_lt);
    } else {
      t0day += 86400.0;
      t += 86400.0;
      logit(LOG_INFO, "%s: sample time %s: Assumed midnight rollover due to %d earlier times received", getName(),
            TimeText(t).text, n_lt);
    }
    n_lt = n_lt_warn = 0;
    return accept(ms, t);
  }
  if (ms < lastTT - LT_LIMIT_MSEC) {
    ++n_lt;
    ++n_lt_warn;
    logit(LOG_ERR, "%s: sample time %s: %d earlier samples tossed", getName(), TimeText(t).text, n_lt);
    return BIGBANG;
  }
  if (ms >= lastTT - LT_WARN_MSEC) {
    n_lt = n_lt_warn = 0;
    return accept(ms, t);
  }
  if (++n_lt_warn > N_LT_WARN) {
    n_lt = n_lt_warn = 0;
    return accept(ms, t);
  }
  logit(LOG_ERR, "%s: sample time %s: %d earlier samples tossed", getName(), TimeText(t).text, n_lt_warn);
  return BIGBANG;
}

// --------------------------------------------------------- FilesRawDataInput

FilesRawDataInput::FilesRawDataInput(int ternIndex_, std::vector<char*>& names, const std::vector<double>& times)
    : RawDataInput(-1, ternIndex_, 65536),
      fnames(nullptr),
      fTimes(nullptr),
      ifile(-1),
      nfiles(static_cast<int>(names.size())),
      nTimes(static_cast<int>(times.size())) {
  if (nTimes <= 0) throw oru::Exception("FilesRawDataInput", "no start time given (nTimes > 0)");
  fnames = new const char*[static_cast<size_t>(nfiles)];
  for (int i = 0; i < nfiles; ++i) fnames[i] = nullptr;
  fTimes = new double[static_cast<size_t>(nTimes)];
  try {
    for (int i = 0; i < nfiles; ++i) fnames[i] = strdup(names[static_cast<size_t>(i)]);
    for (int i = 0; i < nfiles; ++i)
      if (fnames[i] == nullptr) throw std::bad_alloc();
    for (int i = 0; i < nTimes; ++i) fTimes[i] = times[static_cast<size_t>(i)];
    lastTT = -99999;
    lastUT = BIGBANG;
    openNextFile();
  } catch (...) {
    for (int i = 0; i < nfiles; ++i) free(const_cast<char*>(fnames[i]));
    delete[] fnames;
    delete[] fTimes;
    throw;
  }
}

FilesRawDataInput::~FilesRawDataInput() {
  closeCurrent();
  for (int i = 0; i < nfiles; ++i) free(const_cast<char*>(fnames[i]));
  delete[] fnames;
  delete[] fTimes;
}

// Standard input is not ours to close.
void FilesRawDataInput::closeCurrent() {
  if (fd > 0 && close(fd) != 0) logit(LOG_WARNING, "%s: close: %m", getName());
  fd = -1;
}

void FilesRawDataInput::openNextFile() {
  N_LT_LIMIT = 3;
  closeCurrent();
  if (ifile + 1 >= nfiles) {
    ifile = nfiles;
    throw oru::EOFException(getName(), "openNextFile");
  }
  ++ifile;
  const char* fname = fnames[ifile];
  setName(fname);
  if (strcmp(fname, "-") == 0) {
    fd = 0;
    logit(LOG_INFO, "Opened: <stdin>");
  } else {
    fd = ::open(fname, O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw oru::IOException(fname, "open", errno);
    logit(LOG_INFO, "Opened: %s", fname);
  }
  if (ifile < nTimes) {
    const double start = fTimes[ifile];
    t0day = floor(start / 86400.0) * 86400.0;
    lastUT = start;
    lastTT = static_cast<long>(1000.0 * fmod(start, 86400.0));
    if (fd != 0) N_LT_LIMIT = 10;
  }
  firstInFile = 1;
  rbp = wbp = inputBuffer;
}

// -------------------------------------------------------- IngestRawDataInput

IngestRawDataInput::IngestRawDataInput(const char* tern, int ternIndex_, const char* ingester,
                                       const ChanBits& ingestChan, int socketType)
    : RawDataInput(-1, ternIndex_, 8192), ingestServer(ingester), igp(nullptr), ternName(tern) {
  setName(std::string(tern) + "@" + ingester);
  int err = 0;
  igp = call_ingest_server(tern, ternIndex_, ingester, ingestChan, socketType == 2, &err);
  if (igp == nullptr) {
    ingest_perror(tern, ingester, err);
    exit_status_1();
  }
  logit(LOG_INFO, "Connected to ingest %s, port=%d", getName(), static_cast<int>(igp->param.s_port));
  if (socketType == 2) datagramSocket = 1;
  fd = igp->socketfd;
  int size = inputBufSize;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0) {
    const int e = errno;
    quit_ingest_server(ternName.c_str(), ternIndex, ingestServer.c_str(), igp);
    close(fd);
    free_ingest_connect(igp);
    throw oru::IOException(getName(), "setsockopt", e);
  }
}

IngestRawDataInput::~IngestRawDataInput() {
  const int r = quit_ingest_server(ternName.c_str(), ternIndex, ingestServer.c_str(), igp);
  if (r != 0) ingest_perror(ternName.c_str(), ingestServer.c_str(), r);
  if (close(fd) != 0) logit(LOG_WARNING, "%s: close: %m", getName());
  free_ingest_connect(igp);
}

void IngestRawDataInput::resetChannels(const ChanBits& bits) {
  const int r = reset_ingest_connection(ternName.c_str(), ternIndex, ingestServer.c_str(), igp, bits);
  if (r != 0) {
    ingest_perror(ternName.c_str(), ingestServer.c_str(), r);
    exit_status_1();
  }
}

// ---------------------------------------------------------- TernRawDataInput

TernRawDataInput::TernRawDataInput(const char* tern, int ternIndex_, int sockfd)
    : RawDataInput(sockfd, ternIndex_, 8192) {
  setName(std::string("socket to ") + tern);
  int size = inputBufSize;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0)
    throw oru::IOException(getName(), "setsockopt", errno);
}

TernRawDataInput::~TernRawDataInput() = default;

// ---------------------------------------------------- OwlFastoutRawDataInput

OwlFastoutRawDataInput::OwlFastoutRawDataInput(const char* ttyname, const char* tern, int ternIndex_, int inputfd)
    : RawDataInput(inputfd, ternIndex_, 8192) {
  setName(std::string(tern) + " (via " + ttyname + ")");
  _checkEOM = 1;
  _lenEOM = 1;
  _EOM = 3;
}

OwlFastoutRawDataInput::~OwlFastoutRawDataInput() = default;
