// Daemon mode: the supervisor that reads ingest.conf, starts one "Ingest"
// process per serial port of this host, restarts those that end, re-reads
// the table on every pass and stops on SIGINT; and the signal handler that
// reaps the children and sets the flags the passes act on.
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "SerialIngest.h"
#include "base/Exception.h"
#include "base/logit.h"
#include "detach.h"
#include "port/opentty.h"
#include "rpc/getTernServerEnvVar.h"
#include "site/IngestConfig.h"
#include "site/heron_fopen.h"

namespace {
// How long a pass waits before trying again a port that could not be opened
// or a process that could not be made, when no signal comes sooner.
const int kRetrySeconds = 10;
}  // namespace

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

  // Before any site file is read or any child started.
  if (!raisePriority(_appname)) return -1;

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
  std::unique_ptr<TTy> tty;
  try {
    tty = opentty(entry.portName, entry.lineSettings());
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
