// Daemon mode: the supervisor that reads ingest.conf, starts one "Ingest"
// process per serial port of this host, restarts those that end, re-reads
// the table on every pass and stops on SIGINT; and the signal handler that
// reaps the children and sets the flags the passes act on.
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "SerialIngest.h"
#include "base/Exception.h"
#include "base/Reactor.h"
#include "base/clock.h"
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

int SerialIngest::interruptAsked() {
  if (_instance == nullptr || _instance->_loop == nullptr) return 0;
  _instance->_loop->takeSignals();
  return _instance->_interrupt;
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

// Start-up up to the loop: the log, this host's names, the environment and
// the priority.  False when daemon mode cannot go on.
bool SerialIngest::startDaemon() {
  // Decided before anything else: a privileged copy must neither start the
  // caller's choice of "Ingest" nor let the logger open the console with
  // rights its caller lacks (the console is opened once they are gone).
  const bool privileged = privilegedCopy();
  if (privileged && setenv("PATH", kSystemPath, 1) < 0) {
    logit(LOG_ERR, "setenv(PATH): %m");
    return false;
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
    return false;
  }
  _myname = un.nodename;
  _myShortName = _myname.substr(0, _myname.find('.'));
  if (setenv("INGEST_SERVER", _myname.c_str(), 1) < 0) logit(LOG_ERR, "setenv(INGEST_SERVER): %m");

  // Before any site file is read or any child started.
  if (!raisePriority(_appname, &_setup.nice)) return false;
  if (privileged) openlog(_appname, logOptions, LOG_LOCAL5);
  attachConsole();
  return true;
}

int SerialIngest::daemonMode() {
  if (!startDaemon()) return -1;
  // SIGCHLD, SIGINT and SIGHUP come in through the loop's signal descriptor
  // and are handled between its steps, never in the middle of one, so the
  // child map and the system log are never used by two hands at once.
  // "Ingest" starts with the mask the supervisor was started with.
  heron::Reactor loop;
  if (sigprocmask(SIG_BLOCK, nullptr, &_setup.mask) < 0) {
    logit(LOG_ERR, "sigprocmask: %m");
    return -1;
  }
  try {
    for (int sig : {SIGCHLD, SIGINT, SIGHUP}) loop.addSignal(sig, [this](int s) { onSignal(s); });
  } catch (const oru::Exception& e) {
    logit(LOG_ERR, "%s", e.toString().c_str());
    return -1;
  }
  // A server that drops a remote-procedure connection must not end the
  // supervisor through SIGPIPE; the failed call is reported instead.
  signal(SIGPIPE, SIG_IGN);
  // The module server's calls watch the signals too, and a SIGINT that
  // arrives during one ends the call at once instead of when it times out.
  _loop = &loop;
  rpc_wait_signals(loop.signalFd(), interruptAsked);
  // Nothing clears this: every pass re-reads ingest.conf, so a restart
  // always sees the current table.
  _reconfig = 1;
  _ask = true;
  _result = kRunning;
  after(0, &SerialIngest::pass);
  try {
    loop.run();
  } catch (const oru::Exception& e) {
    logit(LOG_ERR, "%s", e.toString().c_str());
    _result = -1;
  }
  rpc_wait_signals(-1, nullptr);
  _loop = nullptr;
  return _result;
}

// A pass: re-reads the table (asking the module server for PROJECT and OPS
// on the first pass and after every signal, not after a timer alone, so a
// failing port's retries repeat none of its messages), then scans it.
void SerialIngest::pass() {
  _midPass = true;
  if (_reconfig) {
    if (_ask) {
      _ask = false;
      setEnvVar("PROJECT", _project);
      if (interruptedNow()) return;
      setEnvVar("OPS", _ops);
      if (interruptedNow()) return;
    }
    _cfg.reset();
    try {
      _cfg.reset(new IngestConfig(_rstr.configFile));
    } catch (const oru::Exception& e) {
      logit(LOG_ERR, "%s", e.toString().c_str());
      return finish(-1);
    }
    if (interruptedNow()) return;
  }
  _next = 0;
  _anything = false;
  _wake = -1;
  scan();
}

// Looks at the entries from _next on: the first that is due a start gets
// it a second later (at most one start per second); at the end of the
// table the next pass is set for when a backed-off or failed start is due,
// or at once when a signal came during the pass.
void SerialIngest::scan() {
  const double now = heron::monotonicSeconds();
  for (; _next < _cfg->stns.size(); ++_next) {
    const IngestConfigEntry& entry = _cfg->stns[_next];
    if (entry.type != SERIALPORT ||
        (entry.ingestServer != "-" && entry.ingestServer != _myname && entry.ingestServer != _myShortName))
      continue;
    _anything = true;
    auto running = _childProcs.find(entry.stationName);
    if (running != _childProcs.end() && running->second != 0) continue;
    // A backed-off start waits for its time; the second before every start
    // counts into that time.
    const double ready = _restarts[entry.stationName].due() - kStartSpacing;
    if (ready <= now) return after(kStartSpacing, &SerialIngest::startNext);
    _wake = _wake < 0 ? ready : std::min(_wake, ready);
  }
  _midPass = false;
  if (!_anything) {
    logit(LOG_ERR, "%s on %s has nothing to do (no serial port entries in ingest.conf for me)", _appname,
          _myname.c_str());
    return finish(0);
  }
  if (_ask) after(0, &SerialIngest::pass);
  else if (_wake >= 0) after(_wake - now, &SerialIngest::pass);
}

void SerialIngest::startNext() {
  const IngestConfigEntry& entry = _cfg->stns[_next++];
  if (!startChild(entry, _setup, _restarts[entry.stationName])) {
    const double retry = heron::monotonicSeconds() + kRetrySeconds;
    _wake = _wake < 0 ? retry : std::min(_wake, retry);
  }
  scan();
}

// A signal, through serial_ingest's own handler; then the end of every
// child it found ended goes to the child's restart policy, and a pass
// follows (at the end of the one under way, if any).
void SerialIngest::onSignal(int sig) {
  staticSignalHandler(sig);
  const double now = heron::monotonicSeconds();
  for (const auto& child : _childProcs) {
    auto policy = _restarts.find(child.first);
    if (child.second == 0 && policy != _restarts.end() && policy->second.running()) policy->second.ended(now);
  }
  _ask = true;
  if (_interrupt) return finish(0);  // the children stay running
  if (!_midPass) after(0, &SerialIngest::pass);
}

bool SerialIngest::interruptedNow() {
  _loop->takeSignals();
  return _result != kRunning;
}

void SerialIngest::after(double seconds, void (SerialIngest::*step)()) {
  _loop->cancelTimeout(_timer);
  _timer = _loop->addTimeout(seconds, [this, step] { (this->*step)(); });
}

void SerialIngest::finish(int result) {
  if (_result != kRunning) return;
  _cfg.reset();
  _result = result;
  _loop->stop();
}

bool SerialIngest::startChild(const IngestConfigEntry& entry, const ChildSetup& setup, RestartPolicy& policy) {
  std::unique_ptr<TTy> tty;
  try {
    tty = opentty(entry.portName, entry.lineSettings());
  } catch (const oru::IOException& e) {
    int count;
    if (policy.failed(heron::monotonicSeconds(), &count)) {
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
  policy.started(heron::monotonicSeconds());
  return true;
}
