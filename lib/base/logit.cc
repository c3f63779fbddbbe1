#include "base/logit.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include <string>

#include "base/Exception.h"

int syslogit = 0;

namespace {
char* logitTZ = nullptr;   // "TZ=<zone given to openlogit>", or null
char* saveTZ = nullptr;    // "TZ=<caller's zone>" while swapped out
size_t lenSaveTZ = 0;

// Copies fmt with every "%m" replaced by the error text; "%%" and all other
// conversions stay as they are for vfprintf.
std::string expandPercentM(const char* fmt, const std::string& errtext) {
  std::string out;
  out.reserve(strlen(fmt) + errtext.size());
  for (const char* p = fmt; *p; ++p) {
    if (p[0] == '%' && p[1] == 'm') {
      out += errtext;
      ++p;
    } else if (p[0] == '%' && p[1] == '%') {
      out += "%%";
      ++p;
    } else {
      out += *p;
    }
  }
  return out;
}

// Remembers "TZ=<zone>" in saveTZ, reusing the buffer when it already holds it.
void rememberCallerZone(const char* zone) {
  size_t need = strlen(zone) + 4;
  if (saveTZ && strcmp(saveTZ + 3, zone) == 0) return;
  if (need > lenSaveTZ) {
    char* grown = static_cast<char*>(malloc(need));
    if (!grown) return;
    // The old buffer may still be the process's TZ entry; it can only be
    // released once the environment no longer points into it.
    const char* cur = getenv("TZ");
    if (saveTZ && !(cur && cur == saveTZ + 3)) free(saveTZ);
    saveTZ = grown;
    lenSaveTZ = need;
  }
  snprintf(saveTZ, lenSaveTZ, "TZ=%s", zone);
}
}  // namespace

extern "C" void openlogit(const char* ident, int option, int facility, const char* tz) {
  syslogit = 1;
  openlog(ident, option, facility);
  if (tz) {
    std::string entry = std::string("TZ=") + tz;
    char* copy = strdup(entry.c_str());
    if (copy) {
      // The previous zone string may be installed in the environment; keep it.
      logitTZ = copy;
    }
  }
}

namespace {
// The system log's end: the message stamped in openlogit's zone, the caller's
// zone put back afterwards.
void toSystemLog(int priority, const std::string& text) {
  bool swapped = false;
  if (logitTZ) {
    const char* cur = getenv("TZ");
    if (!cur) cur = "GMT";
    if (strcmp(cur, logitTZ + 3) != 0) {
      std::string callerZone(cur);
      rememberCallerZone(callerZone.c_str());
      putenv(logitTZ);
      tzset();
      swapped = saveTZ != nullptr;
    }
  }
  syslog(priority, "%s", text.c_str());
  if (swapped) {
    putenv(saveTZ);
    tzset();
  }
}

void toStandardError(const std::string& text) { fputs((text + "\n").c_str(), stderr); }

heron::LogEnds& ends() {
  static heron::LogEnds installed{toSystemLog, toStandardError};
  return installed;
}

// The message with "%m" as each end has always shown it: the system log names
// error 0 "Success", standard error leaves it empty.
std::string formatted(const char* format, va_list ap, int err) {
  const std::string errtext = err == 0 && syslogit ? strerror(0) : oru::Exception::errnoToString(err);
  const std::string fmt = expandPercentM(format, errtext);
  va_list size;
  va_copy(size, ap);
  const int n = vsnprintf(nullptr, 0, fmt.c_str(), size);
  va_end(size);
  if (n < 0) return fmt;  // a conversion the C library refuses: the format itself still says what happened
  std::string text(static_cast<size_t>(n) + 1, '\0');
  vsnprintf(&text[0], text.size(), fmt.c_str(), ap);
  text.resize(static_cast<size_t>(n));
  return text;
}
}  // namespace

namespace {
bool informationShown = true;
}

void heron::showInformation(bool on) { informationShown = on; }

void heron::logText(int priority, const std::string& text) {
  if (LOG_PRI(priority) >= LOG_INFO && !informationShown) return;
  const int savedErrno = errno;  // reporting a failure must not change what the caller reads of it
  if (syslogit)
    ends().systemLog(priority, text);
  else
    ends().standardError(text);
  errno = savedErrno;
}

heron::LogEnds heron::setLogEnds(LogEnds next) {
  LogEnds replaced = ends();
  ends().systemLog = next.systemLog ? std::move(next.systemLog) : toSystemLog;
  ends().standardError = next.standardError ? std::move(next.standardError) : toStandardError;
  return replaced;
}

extern "C" void logit(int priority, const char* format, ...) {
  const int err = errno;
  va_list ap;
  va_start(ap, format);
  const std::string text = formatted(format, ap, err);
  va_end(ap);
  errno = err;
  heron::logText(priority, text);
}

extern "C" const char* signame(int sig) {
  static const char* const names[32] = {
      "none",    "SIGHUP",  "SIGINT",  "SIGQUIT", "SIGILL",    "SIGTRAP", "SIGABRT",  "SIGEMT",
      "SIGFPE",  "SIGKILL", "SIGBUS",  "SIGSEGV", "SIGSYS",    "SIGPIPE", "SIGALRM",  "SIGTERM",
      "SIGURG",  "SIGSTOP", "SIGTSTP", "SIGCONT", "SIGCHLD",   "SIGTTIN", "SIGTTOU",  "SIGIO",
      "SIGXCPU", "SIGXFSZ", "SIGVTALRM", "SIGPROF", "SIGWINCH", "SIGLOST", "SIGUSR1", "SIGUSR2"};
  if (sig < 0 || sig > 31) return "unknown";
  return names[sig];
}
