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

#include <poll.h>
#include <sys/utsname.h>

#include "base/Exception.h"
#include "site/IngestConfig.h"
#include "samples/Sample.h"
#include "port/TTy.h"
#include "rpc/getTernServerEnvVar.h"
#include "site/heron_fopen.h"
#include "base/logit.h"
#include "base/fatal.h"

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

namespace {
// How long a pass waits before trying again a port that could not be opened
// or a process that could not be made, when no signal comes sooner.
const int kRetrySeconds = 10;
}  // namespace

SerialIngest::SerialIngest(int argc, char** argv)
    : _appname(argv[0]), _rstr(argc, argv), _interrupt(0), _reconfig(0) {
  _instance = this;
}

SerialIngest::~SerialIngest() {
  if (_instance == this) _instance = nullptr;
}

int SerialIngest::run() { return _rstr.daemon ? daemonMode() : debugMode(); }

int SerialIngest::debugMode() {
  syslogit = 0;
  // A set-user-id copy must not open a port its user could not open.
  if (!dropPrivileges(getuid(), getgid())) {
    logit(LOG_ERR, "%s: cannot give up set-user-id privileges: %m", _appname);
    return -1;
  }
  std::unique_ptr<TTy> tty(opentty(_rstr.ttyname, _rstr.baud, _rstr.parity, _rstr.databits,
                                   _rstr.stopbits, _rstr.flowcontrol, _rstr.clocal));
  switch (_rstr.output) {
    case SerialIngestRunstring::OCTCHAR: return octout(tty.get());
    case SerialIngestRunstring::HEX: return hexout(tty.get());
    default: return sampleOutput(tty.get());
  }
}

const char* SerialIngest::fastoutModuleName() {
  const char* name = getenv("SERIAL_INGEST_TERN");
  return name != nullptr && name[0] != '\0' ? name : SERIAL_INGEST_DEFAULT_TERN;
}

int SerialIngest::sampleOutput(TTy* tty) {
  OwlFastoutRawDataInput input(tty->getName(), fastoutModuleName(), 0, tty->fd());
  RawSample sample;
  char line[2 + RawSample::maxTextLen + 1];
  for (;;) {
    const int r = input.readSample(&sample);
    if (r != 1 && r != 2) continue;
    // "B " marks a sample dropped for a missing end-of-message byte.
    line[0] = r == 1 ? ' ' : 'B';
    line[1] = ' ';
    size_t n = 2 + static_cast<size_t>(sample.format(line + 2));
    line[n++] = '\n';
    if (fwrite(line, 1, n, stdout) != n || fflush(stdout) != 0) throw oru::IOException("stdout", "write", errno);
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

void SerialIngest::setEnvVar(const char* name, std::string& value) {
  try {
    std::string fresh = getTernServerEnvVar(name);
    if (fresh != value) {
      if (setenv(name, fresh.c_str(), 1) < 0) {
        logit(LOG_ERR, "setenv(%s): %m", name);
        return;
      }
      value = fresh;
    }
  } catch (const oru::Exception& e) {
    logit(LOG_ERR, "%s", e.toString().c_str());
  }
}

int SerialIngest::daemonMode() {
  syslogit = 1;
  disassociate();
  openlogit(_appname, LOG_PID | LOG_CONS | LOG_NOWAIT, LOG_LOCAL5, getenv("TZ"));

  char* expanded = heron_expand_name(_rstr.configFile);
  logit(LOG_NOTICE, "%s started, config: %s\n", _appname, expanded ? expanded : _rstr.configFile);
  free(expanded);

  struct utsname un;
  if (uname(&un) < 0) {
    logit(LOG_ERR, "uname: %m");
    return -1;
  }
  const std::string myname(un.nodename);
  const std::string myShortName = myname.substr(0, myname.find('.'));
  if (setenv("INGEST_SERVER", myname.c_str(), 1) < 0) logit(LOG_ERR, "setenv(INGEST_SERVER): %m");

  // A raised priority is inherited by every child.  Only root may raise it,
  // so a set-user-id-root program does it now and then gives root up.
  // setuid(0) makes every id root, so the real ids are taken first.
  const uid_t realUid = getuid();
  const gid_t realGid = getgid();
  if (setuid(0) < 0) {
    if (geteuid() == 0)
      logit(LOG_ERR, "setuid(0): %m");
    else
      logit(LOG_WARNING, "%s is not suid-to-root, cannot use real-time priority", _appname);
  } else {
    pid_t pid = getpid();
    errno = 0;
    int nice = getpriority(PRIO_PROCESS, pid);
    if (nice < 0 && errno != 0) {
      logit(LOG_WARNING, "getpriority(PRIO_PROCESS,%d): %m", static_cast<int>(pid));
    } else {
      int raised = nice - 10 < -20 ? -20 : nice - 10;
      if (setpriority(PRIO_PROCESS, pid, raised) < 0)
        logit(LOG_WARNING, "setpriority(PRIO_PROCESS,%d,%d): %m", static_cast<int>(pid), raised);
    }
  }
  // Before any site file is read or any child started.
  if (!dropPrivileges(realUid, realGid)) {
    logit(LOG_ERR, "setuid(): %m");
    return -1;
  }

  // The handlers run only while the loop waits: the three signals stay
  // blocked everywhere else, so the child map and the system log are never
  // used by a handler in the middle of the loop's own use of them.
  sigset_t handled, waitMask;
  sigemptyset(&handled);
  sigaddset(&handled, SIGCHLD);
  sigaddset(&handled, SIGINT);
  sigaddset(&handled, SIGHUP);
  if (sigprocmask(SIG_BLOCK, &handled, &waitMask) < 0) {
    logit(LOG_ERR, "sigprocmask: %m");
    return -1;
  }
  const sigset_t childMask = waitMask;  // what "Ingest" starts with
  sigdelset(&waitMask, SIGCHLD);
  sigdelset(&waitMask, SIGINT);
  sigdelset(&waitMask, SIGHUP);
  struct sigaction sa;
  memset(&sa, 0, sizeof sa);
  sa.sa_handler = staticSignalHandler;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGCHLD, SIGINT, SIGHUP}) {
    if (sigaction(sig, &sa, nullptr) < 0) {
      logit(LOG_ERR, "sigaction(%s): %m", signame(sig));
      return -1;
    }
  }
  // A server that drops a remote-procedure connection must not end the
  // supervisor through SIGPIPE; the failed call is reported instead.
  signal(SIGPIPE, SIG_IGN);
  // Nothing clears this: every pass re-reads ingest.conf, so a restart
  // always sees the current table.
  _reconfig = 1;

  for (;;) {
    if (_reconfig) {
      setEnvVar("PROJECT", _project);
      setEnvVar("OPS", _ops);
      _cfg.reset();
      try {
        _cfg.reset(new IngestConfig(_rstr.configFile));
      } catch (const oru::Exception& e) {
        logit(LOG_ERR, "%s", e.toString().c_str());
        return -1;
      }
    }

    bool anything = false;
    bool retry = false;
    for (const IngestConfigEntry& entry : _cfg->stns) {
      if (entry.type != SERIALPORT) continue;
      if (entry.ingestServer != "-" && entry.ingestServer != myname && entry.ingestServer != myShortName)
        continue;
      anything = true;
      auto running = _childProcs.find(entry.stationName);
      if (running != _childProcs.end() && running->second != 0) continue;
      sleep(1);  // at most one start per second
      if (!startChild(entry, childMask)) retry = true;
    }
    if (!anything) {
      logit(LOG_ERR, "%s on %s has nothing to do (no serial port entries in ingest.conf for me)", _appname,
            myname.c_str());
      _cfg.reset();
      return 0;
    }

    // Wait for a signal; ports that failed are tried again after a while.
    struct timespec again = {kRetrySeconds, 0};
    if (ppoll(nullptr, 0, retry ? &again : nullptr, &waitMask) < 0 && errno != EINTR) {
      logit(LOG_ERR, "ppoll: %m");
      sleep(1);
    }
    if (_interrupt) {
      _cfg.reset();  // the children stay running
      return 0;
    }
  }
}

bool SerialIngest::startChild(const IngestConfigEntry& entry, const sigset_t& childMask) {
  int local = entry.local == "local" || entry.local == "LOCAL";
  std::unique_ptr<TTy> tty;
  try {
    tty.reset(opentty(entry.portName.c_str(), entry.baud, entry.parity.c_str(), entry.databits,
                      entry.stopbits, entry.flowcontrol.c_str(), local));
  } catch (const oru::IOException& e) {
    logit(LOG_ERR, "%s", e.toString().c_str());
    return false;
  }
  pid_t pid = fork();
  if (pid < 0) {
    logit(LOG_ERR, "cannot fork: %m");
    return false;
  }
  if (pid == 0) {
    signal(SIGCHLD, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &childMask, nullptr);
    closelog();
    char fdtext[16];
    snprintf(fdtext, sizeof fdtext, "%d", tty->fd());
    execlp("Ingest", entry.stationName.c_str(), fdtext, entry.portName.c_str(), static_cast<char*>(nullptr));
    perror("execlp Ingest");
    logit(LOG_ERR, "execlp Ingest: %m");
    _exit(1);
  }
  tty.reset();  // the child has the port now
  setsid();
  _childProcs[entry.stationName] = pid;
  return true;
}

bool dropPrivileges(uid_t uid, gid_t gid) {
  if (setresgid(gid, gid, gid) < 0 || setresuid(uid, uid, uid) < 0) return false;
  uid_t r, e, s;
  gid_t rg, eg, sg;
  if (getresuid(&r, &e, &s) < 0 || getresgid(&rg, &eg, &sg) < 0) return false;
  if (r != uid || e != uid || s != uid || rg != gid || eg != gid || sg != gid) {
    errno = EPERM;
    return false;
  }
  return true;
}

void disassociate() {
  pid_t pid = fork();
  if (pid < 0) {
    logit(LOG_ERR, "cannot fork: %m");
    exit_status_1();
  }
  if (pid > 0) exit(0);

  struct rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) < 0 || rl.rlim_cur == 0) exit_status_1();
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
