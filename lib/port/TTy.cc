#include "port/TTy.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "base/Exception.h"
#include "base/logit.h"
#include "port/LineSettings.h"

namespace {
const char* const kModemNames[9] = {"LE", "DTR", "RTS", "ST", "SR", "CTS", "CD", "RNG", "DSR"};
const int kModemBits[9] = {TIOCM_LE,  TIOCM_DTR, TIOCM_RTS, TIOCM_ST, TIOCM_SR,
                           TIOCM_CTS, TIOCM_CD,  TIOCM_RNG, TIOCM_DSR};
}  // namespace

TTy::TTy(const char* name) : _tio(), _fd(-1), _savep(nullptr), _savelen(0), _name(name) {}

TTy::TTy(const char* name, int fd) : TTy(name) {
  _fd = fd;
  if (tcgetattr(_fd, &_tio) < 0) {
    _fd = -1;  // not adopted: the caller still owns it
    fail("tcgetattr");
  }
}

TTy::~TTy() {
  if (_fd >= 0) ::close(_fd);
}

void TTy::fail(const char* operation) const { throw oru::IOException(_name.c_str(), operation, errno); }

int TTy::open(int mode) {
  int fd = ::open(_name.c_str(), mode);
  if (fd < 0) fail("open");
  if (_fd >= 0) ::close(_fd);
  _fd = fd;
  if (tcgetattr(_fd, &_tio) < 0) fail("tcgetattr");
  return _fd;
}

int TTy::open(int mode, int baud, const char* parity, int charsize, int stopb, int local) {
  open(mode);
  set_usual(baud, parity, charsize, stopb, local);
  return _fd;
}

void TTy::set_usual(int baud, const char* parity, int charsize, int stopb, int local) {
  speed_t code;
  if (!baudCode(baud, &code)) {
    logit(LOG_WARNING, "Warning: unknown baud rate: %d", baud);
    code = B0;
  }
  tcflag_t& c = _tio.c_cflag;
  c = (c & ~(CBAUD | CBAUDEX)) | code;

  if (!knownParity(parity)) {
    logit(LOG_WARNING, "Warning: unknown parity: %s", parity);
    c &= ~PARENB;
  } else if (strcmp(parity, "none") == 0) {
    c &= ~PARENB;
  } else if (strcmp(parity, "even") == 0) {
    c |= PARENB;
    c &= ~PARODD;
  } else {
    c |= PARENB | PARODD;
  }

  c &= ~CSIZE;
  switch (charsize) {
    case 5: c |= CS5; break;
    case 6: c |= CS6; break;
    case 7: c |= CS7; break;
    default: c |= CS8; break;
  }

  if (stopb == 2)
    c |= CSTOPB;
  else
    c &= ~CSTOPB;
  c |= CREAD;
  if (local)
    c |= CLOCAL;
  else
    c &= ~CLOCAL;

  if (tcsetattr(_fd, TCSANOW, &_tio) < 0) fail("tcsetattr TCSANOW");
}

void TTy::setflags() {
  if (tcsetattr(_fd, TCSANOW, &_tio) < 0) fail("tcsetattr TCSANOW");
}

int TTy::setblocking() {
  int flags = fcntl(_fd, F_GETFL);
  if (flags < 0) fail("fcntl ~O_NONBLOCK");
  if (fcntl(_fd, F_SETFL, flags & ~O_NONBLOCK) < 0) fail("fcntl ~O_NONBLOCK");
  return flags;
}

int TTy::getmodem() {
  int bits = 0;
  if (ioctl(_fd, TIOCMGET, &bits) < 0) fail("ioctl TIOCMGET");
  return bits;
}

int TTy::carrier() { return getmodem() & TIOCM_LE; }

char* TTy::printmodem(char* s, int len) {
  int bits = getmodem();
  std::string text;
  for (int i = 0; i < 9; ++i) {
    text += kModemNames[i];
    text += (bits & kModemBits[i]) ? "=ON " : "=OFF ";
  }
  if (len <= 0) return s;
  strncpy(s, text.c_str(), len);
  s[len - 1] = '\0';
  return s;
}

void TTy::flushInput() {
  if (tcflush(_fd, TCIFLUSH) < 0) fail("tcflush TCIFLUSH");
}
void TTy::flushOutput() {
  if (tcflush(_fd, TCOFLUSH) < 0) fail("tcflush TCOFLUSH");
}
void TTy::flushBoth() {
  if (tcflush(_fd, TCIOFLUSH) < 0) fail("tcflush TCIOFLUSH");
}

int TTy::read(char* buf, int len) {
  ssize_t n = ::read(_fd, buf, len);
  if (n < 0) fail("read");
  return static_cast<int>(n);
}

int TTy::write(const char* buf, int len) {
  ssize_t n = ::write(_fd, buf, len);
  if (n < 0) fail("write");
  return static_cast<int>(n);
}

int TTy::readline(char* buf, int len) {
  if (len <= 0) return 0;
  int toread = len - 1;
  char* out = buf;

  if (_savelen > 0) {
    int n = std::min(_savelen, toread);
    for (int i = 0; i < n; ++i) {
      char ch = *_savep++;
      --_savelen;
      *out++ = ch;
      --toread;
      if (ch == '\n') {
        *out = '\0';
        return len - 1 - toread;
      }
    }
  }

  while (toread > 0) {
    ssize_t n = ::read(_fd, out, toread);
    if (n < 0) {
      *out = '\0';
      fail("read");
    }
    if (n == 0) break;
    char* end = out + n;
    while (out < end) {
      char ch = *out++;
      --toread;
      if (ch == '\n') {
        int rest = static_cast<int>(end - out);
        if (rest > 0) {
          if (static_cast<size_t>(rest) > _savebuf.size()) _savebuf.assign(rest, '\0');
          memcpy(_savebuf.data(), out, rest);
          _savep = _savebuf.data();
          _savelen = rest;
        }
        *out = '\0';
        return len - 1 - toread;
      }
    }
  }
  *out = '\0';
  return len - 1 - toread;
}

int TTy::readchar() {
  if (_savelen <= 0) {
    if (_savebuf.empty()) _savebuf.assign(512, '\0');
    ssize_t n = ::read(_fd, _savebuf.data(), _savebuf.size());
    if (n < 0) {
      _savelen = 0;
      fail("read");
    }
    if (n == 0) return 0;
    _savelen = static_cast<int>(n);
    _savep = _savebuf.data();
  }
  --_savelen;
  return static_cast<signed char>(*_savep++);
}

const char* TTy::LKfile() {
  struct stat st;
  if (fstat(_fd, &st) < 0) fail("fstat");
  return nullptr;
}

int TTy::LKfileExists() {
  const char* name = LKfile();
  return name != nullptr && access(name, F_OK) == 0;
}
