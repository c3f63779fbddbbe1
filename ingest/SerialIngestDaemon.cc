// Daemon mode: the supervisor that reads ingest.conf, starts one "Ingest"
// process per serial port of this host, restarts those that end, re-reads
// the table on every pass and stops on SIGINT; and the signal handler that
// reaps the children and sets the flags the passes act on.
#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "SerialIngest.h"
#include "base/Exception.h"
#include "base/logit.h"
#include "detach.h"
#include "port/opentty.h"
#include "rpc/getTernServerEnvVar.h"
#include "rpc/rpc_wait.h"
#include "site/IngestConfig.h"
#include "site/heron_fopen.h"

namespace {
// How long a pass waits before trying again a port that could not be opened
// or a process that could not be made, when no signal comes sooner.
const double kRetrySeconds = 10;
// The wait before every start: at most one port is started per second.
const double kStartSpacing = 1;

double monotonicNow() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);  // cannot fail with this clock
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Closes the descriptors from `from` to `to`, both included, in a child
// about to execute a program.  Closing a descriptor that is not open is
// harmless here, so the one-by-one fallback does not look at the results.
void closeFrom(int from, int to) {
  if (from > to) return;
  if (close_range(static_cast<unsigned>(from), static_cast<unsigned>(to), 0) == 0) return;
  const long max = sysconf(_SC_OPEN_MAX);
  for (long fd = from; fd <= to && fd < max; ++fd) close(static_cast<int>(fd));
}
}  // namespace

int SerialIngest::interruptAsked() { return _instance != nullptr && _instance->_interrupt; }

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
  // Decided before anything else: a privileged copy must neither start the
  // caller's choice of "Ingest" nor let the logger open the console with
  // rights its caller lacks (the console is opened once they are gone).
  const bool privileged = privilegedCopy();
  if (privileged && setenv("PATH", kSystemPath, 1) < 0) {
    logit(LOG_ERR, "setenv(PATH): %m");
    return -1;
  }
  const int logOptions = LOG_PID | LOG_CONS | LOG_NOWAIT;
  syslogit = 1;
  disassociate();
  openlogit(_appname, privileged ? logOptions & ~LOG_CONS : logOptions, LOG_LOCAL5, getenv("TZ"));

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

  // Before any site file is read or any child started.
  ChildSetup setup;
  if (!raisePriority(_appname, &setup.nice)) return -1;
  if (privileged) openlog(_appname, logOptions, LOG_LOCAL5);
  attachConsole();

  // The handlers run only while the supervisor waits: the three signals stay
  // blocked everywhere else, so the child map and the system log are never
  // used by a handler in the middle of the loop's own use of them.  Every
  // step of a pass ends by letting pending signals in, and no wait lasts
  // beyond the first signal, so SIGINT is answered at once in every state.
  sigset_t handled;
  sigemptyset(&handled);
  sigaddset(&handled, SIGCHLD);
  sigaddset(&handled, SIGINT);
  sigaddset(&handled, SIGHUP);
  if (sigprocmask(SIG_BLOCK, &handled, &_waitMask) < 0) {
    logit(LOG_ERR, "sigprocmask: %m");
    return -1;
  }
  setup.mask = _waitMask;  // what "Ingest" starts with
  sigdelset(&_waitMask, SIGCHLD);
  sigdelset(&_waitMask, SIGINT);
  sigdelset(&_waitMask, SIGHUP);
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
  // The module server's calls wait under the same mask, and a SIGINT that
  // arrives during one ends the call at once instead of when it times out.
  rpc_wait_signals(&_waitMask, interruptAsked);
  // Nothing clears this: every pass re-reads ingest.conf, so a restart
  // always sees the current table.
  _reconfig = 1;

  // The module server is asked on the first pass and on every pass after a
  // signal; a pass that only a timer started (a start that came due) does
  // not ask it again, so a failing port's retries repeat none of its messages.
  bool ask = true;
  // Lets pending signals in; true, with the table let go, when one asked the
  // supervisor to end.
  auto interrupted = [this, &ask] {
    if (waitSignal(0)) ask = true;
    if (!_interrupt) return false;
    _cfg.reset();  // the children stay running
    return true;
  };
  for (;;) {
    if (_reconfig) {
      if (ask) {
        ask = false;
        setEnvVar("PROJECT", _project);
        if (interrupted()) return 0;
        setEnvVar("OPS", _ops);
        if (interrupted()) return 0;
      }
      _cfg.reset();
      try {
        _cfg.reset(new IngestConfig(_rstr.configFile));
      } catch (const oru::Exception& e) {
        logit(LOG_ERR, "%s", e.toString().c_str());
        return -1;
      }
      if (interrupted()) return 0;
    }

    bool anything = false;
    double wake = -1;  // when the next backed-off or failed start is due
    for (const IngestConfigEntry& entry : _cfg->stns) {
      if (entry.type != SERIALPORT) continue;
      if (entry.ingestServer != "-" && entry.ingestServer != myname && entry.ingestServer != myShortName)
        continue;
      anything = true;
      auto running = _childProcs.find(entry.stationName);
      if (running != _childProcs.end() && running->second != 0) continue;
      // A backed-off start waits for its time; the second before every start
      // counts into that time.
      RestartPolicy& policy = _restarts[entry.stationName];
      double now = monotonicNow();
      const double ready = policy.due() - kStartSpacing;
      if (ready > now) {
        wake = wake < 0 ? ready : std::min(wake, ready);
        continue;
      }
      // At most one start per second, answering signals meanwhile.
      for (const double until = now + kStartSpacing; (now = monotonicNow()) < until;) {
        if (waitSignal(until - now)) ask = true;
        if (interrupted()) return 0;
      }
      if (!startChild(entry, setup, policy)) {
        const double retry = monotonicNow() + kRetrySeconds;
        wake = wake < 0 ? retry : std::min(wake, retry);
      }
    }
    if (!anything) {
      logit(LOG_ERR, "%s on %s has nothing to do (no serial port entries in ingest.conf for me)", _appname,
            myname.c_str());
      _cfg.reset();
      return 0;
    }

    // A signal handled during the pass calls for the next one at once.
    if (!ask && waitSignal(wake < 0 ? -1 : std::max(0.0, wake - monotonicNow()))) ask = true;
    if (interrupted()) return 0;
  }
}

bool SerialIngest::waitSignal(double seconds) {
  struct timespec limit;
  limit.tv_sec = static_cast<time_t>(seconds);
  limit.tv_nsec = static_cast<long>((seconds - static_cast<double>(limit.tv_sec)) * 1e9);
  const int r = ppoll(nullptr, 0, seconds < 0 ? nullptr : &limit, &_waitMask);
  const bool handled = r < 0 && errno == EINTR;
  if (r < 0 && !handled) {
    logit(LOG_ERR, "ppoll: %m");
    sleep(1);
  }
  const double now = monotonicNow();
  for (const auto& child : _childProcs) {
    auto policy = _restarts.find(child.first);
    if (child.second == 0 && policy != _restarts.end() && policy->second.running()) policy->second.ended(now);
  }
  return handled;
}

bool SerialIngest::startChild(const IngestConfigEntry& entry, const ChildSetup& setup, RestartPolicy& policy) {
  std::unique_ptr<TTy> tty;
  try {
    tty = opentty(entry.portName, entry.lineSettings());
  } catch (const oru::IOException& e) {
    int count;
    if (policy.failed(monotonicNow(), &count)) {
      if (count == 0)
        logit(LOG_ERR, "%s", e.toString().c_str());
      else
        logit(LOG_ERR, "%s (failed %d more times since last reported)", e.toString().c_str(), count);
    }
    return false;
  }
  policy.opened();
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
    sigprocmask(SIG_SETMASK, &setup.mask, nullptr);
    closelog();
    // "Ingest" gets the port and the three standard streams, nothing else.
    const int fd = tty->fd();
    closeFrom(3, fd - 1);
    closeFrom(fd + 1, INT_MAX);
    if (setup.nice != kInheritNice && setpriority(PRIO_PROCESS, 0, setup.nice) < 0) {
      perror("setpriority");
      logit(LOG_ERR, "setpriority(PRIO_PROCESS,0,%d): %m", setup.nice);
      _exit(1);
    }
    char fdtext[16];
    snprintf(fdtext, sizeof fdtext, "%d", fd);
    execlp("Ingest", entry.stationName.c_str(), fdtext, entry.portName.c_str(), static_cast<char*>(nullptr));
    perror("execlp Ingest");
    logit(LOG_ERR, "execlp Ingest: %m");
    _exit(1);
  }
  tty.reset();  // the child has the port, and its lock, now
  setsid();     // no effect for the session leader; kept from the original start-up
  _childProcs[entry.stationName] = pid;
  policy.started(monotonicNow());
  return true;
}
