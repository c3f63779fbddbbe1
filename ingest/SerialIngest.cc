#include "SerialIngest.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "Exception.h"
#include "TTy.h"
#include "logit.h"

SerialIngest* SerialIngest::_instance = nullptr;

namespace {
// Hands one read's worth of formatted dump text to standard output at once,
// so a pipe sees every byte as soon as the port delivered it.
void emit(const std::string& text) {
  if (text.empty()) return;
  if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
    throw oru::IOException("stdout", "write", errno);
}

// "%07llu" of the running byte offset, without a formatted-print call.
void appendOffset(std::string& out, unsigned long long n) {
  char digits[24];
  int len = 0;
  do {
    digits[len++] = static_cast<char>('0' + n % 10);
    n /= 10;
  } while (n);
  for (int i = len; i < 7; ++i) out += '0';
  while (len) out += digits[--len];
}

const char kHex[] = "0123456789abcdef";

// Shared loop of both dumps: the offset before every 16th byte, the byte in
// the dump's own form, a newline after every 16th.
template <typename FormatByte>
int dump(TTy* tty, FormatByte formatByte) {
  char buf[1024];
  unsigned long long counter = 0;
  std::string out;
  out.reserve(8 * sizeof buf);
  for (;;) {
    int n = tty->read(buf, sizeof buf);
    if (n == 0) throw oru::EOFException(tty->getName(), "read");
    out.clear();
    for (int i = 0; i < n; ++i) {
      if (counter % 16 == 0) appendOffset(out, counter);
      formatByte(out, static_cast<unsigned char>(buf[i]), counter);
      if (++counter % 16 == 0) out += '\n';
    }
    emit(out);
  }
}
}  // namespace

SerialIngest::SerialIngest(int argc, char** argv)
    : _appname(argv[0]), _rstr(argc, argv), _interrupt(0), _reconfig(0) {
  _instance = this;
}

SerialIngest::~SerialIngest() {
  if (_instance == this) _instance = nullptr;
}

int SerialIngest::run() { return debugMode(); }

int SerialIngest::debugMode() {
  syslogit = 0;
  std::unique_ptr<TTy> tty(opentty(_rstr.ttyname, _rstr.baud, _rstr.parity, _rstr.databits,
                                   _rstr.stopbits, _rstr.flowcontrol, _rstr.clocal));
  switch (_rstr.output) {
    case SerialIngestRunstring::OCTCHAR: return octout(tty.get());
    case SerialIngestRunstring::HEX: return hexout(tty.get());
    default:
      logit(3, "%s: sample output is not available in this version; use -O or -H", _appname);
      return -1;
  }
}

int SerialIngest::octout(TTy* tty) {
  return dump(tty, [](std::string& out, unsigned char b, unsigned long long) {
    if (b == 0) {
      out += "  \\0";
    } else if (isprint(b)) {
      out += "   ";
      out += static_cast<char>(b);
    } else {
      out += ' ';
      out += static_cast<char>('0' + (b >> 6));
      out += static_cast<char>('0' + ((b >> 3) & 7));
      out += static_cast<char>('0' + (b & 7));
    }
  });
}

int SerialIngest::hexout(TTy* tty) {
  return dump(tty, [](std::string& out, unsigned char b, unsigned long long counter) {
    if (counter % 2 == 0) out += ' ';
    out += kHex[b >> 4];
    out += kHex[b & 15];
  });
}

TTy* SerialIngest::opentty(const char* name, int baud, const char* parity, int databits,
                           int stopbits, const char* flowcontrol, int local) {
  std::unique_ptr<TTy> tty(new TTy(name));
  // Non-blocking, so the open does not wait for carrier.
  tty->open(O_RDWR | O_NOCTTY | O_NONBLOCK);
  fprintf(stderr, "Opened: %s\n", name);
  tty->setblocking();
  if (tty->LKfileExists())
    throw oru::IOException(name, "lock",
                           (std::string("file ") + tty->LKfile() + " exists. Is tip running?").c_str());
  tty->set_usual(baud, parity, databits, stopbits, local);

  tty->iflag() &= ~(INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IUCLC | IXON | IXANY | IXOFF | IMAXBEL);
  tty->iflag() |= IGNBRK;
  tty->oflag() |= OPOST | ONLCR;
  tty->oflag() &= ~(OFILL | OFDEL | NLDLY | CRDLY | TABDLY | BSDLY | VTDLY | FFDLY);
  tty->lflag() &= ~(ISIG | ICANON | ECHO | ECHOCTL | IEXTEN);
  tty->cflag() |= HUPCL;

  if (!knownFlowControl(flowcontrol)) throw oru::IOException(name, "Unknown flow control", flowcontrol);
  // There is no input-only RTS flow control on this platform: "RTS" is
  // accepted and leaves the line as it is.
  if (strcmp(flowcontrol, "RTSCTS") == 0 || strcmp(flowcontrol, "CTS") == 0) tty->cflag() |= CRTSCTS;

  tty->cc()[VMIN] = 128;
  tty->cc()[VTIME] = 0;
  tty->setflags();
  return tty.release();
}

void SerialIngest::staticSignalHandler(int sig) {
  if (SerialIngest* app = instance()) app->signalHandler(sig);
}

void SerialIngest::signalHandler(int sig) {
  if (sig == SIGHUP) {
    logit(LOG_NOTICE, "%s received SIGHUP signal, will reread ingest.conf", _appname);
    _reconfig = 1;
    return;
  }
  if (sig == SIGCHLD) {
    int status;
    pid_t pid;
    while ((pid = wait3(&status, WNOHANG, nullptr)) > 0) {
      int exitValue = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
      int signo = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
      auto it = _childProcs.begin();
      while (it != _childProcs.end() && it->second != pid) ++it;
      if (it == _childProcs.end()) {
        logit(LOG_NOTICE,
              "unknown child of %s (pid=%d) has exited/stopped, exit value:%d, signal:%s(%d)",
              _appname, static_cast<int>(pid), exitValue, signame(signo), signo);
      } else {
        logit(LOG_NOTICE, "%s %s [%d] has exited/stopped, exit value:%d, signal:%s(%d)", _appname,
              it->first.c_str(), static_cast<int>(pid), exitValue, signame(signo), signo);
        it->second = 0;
      }
    }
    return;
  }
  logit(LOG_NOTICE, "%s received %d signal, terminating", _appname, sig);
  _interrupt = 1;
}

void disassociate() {
  pid_t pid = fork();
  if (pid < 0) {
    logit(LOG_ERR, "cannot fork: %m");
    exit(1);
  }
  if (pid > 0) exit(0);

  struct rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) < 0 || rl.rlim_cur == 0) exit(1);
  unsigned int last = rl.rlim_cur > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(rl.rlim_cur - 1);
  if (close_range(0, last, 0) < 0) {
    for (unsigned int fd = 0; fd <= last && fd < 65536; ++fd) close(static_cast<int>(fd));
  }

  // Standard input goes to /dev/null and the output streams to the console
  // (or /dev/null without one), so that no port opened later can become
  // descriptor 0, 1 or 2 and receive stray messages.
  open("/dev/null", O_RDWR);
  int out = open("/dev/console", O_RDWR | O_NOCTTY);
  if (out < 0) out = open("/dev/null", O_RDWR);
  if (out >= 0) {
    if (out != 1) dup2(out, 1);
    if (out != 2) dup2(out, 2);
    if (out > 2) close(out);
  }
  setsid();
}
