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

extern "C" void logit(int priority, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  if (!syslogit) {
    std::string errtext = oru::Exception::errnoToString(errno);
    std::string fmt = expandPercentM(format, errtext) + "\n";
    vfprintf(stderr, fmt.c_str(), ap);
    va_end(ap);
    return;
  }
  int savedErrno = errno;  // the zone swap must not disturb "%m"
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
  errno = savedErrno;
  vsyslog(priority, format, ap);
  va_end(ap);
  if (swapped) {
    putenv(saveTZ);
    tzset();
  }
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
