// Reporting for the programs and the library: to the system log once
// openlogit has been called (daemon mode), to standard error otherwise.  "%m"
// works in both forms.  Every message the library writes goes this way, so a
// daemon's library messages reach its log and a tool's reach its user.
#ifndef HERON_LOGIT_H
#define HERON_LOGIT_H

#include <syslog.h>  // the priority names: LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO

#ifdef __cplusplus
extern "C" {
#endif

// 1 after openlogit; single-port modes clear it to report on standard error.
extern int syslogit;

// Opens the system log and routes logit there.  When tz is not null, the
// system log's time stamps are written in that zone (the caller's TZ is
// swapped in and out around each message).
void openlogit(const char* ident, int option, int facility, const char* tz);

// Writes one message at a priority named by <syslog.h>.  On standard error
// the priority is ignored and a newline is added.
void logit(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Name of a signal by the classic BSD numbering (10 is "SIGBUS" even where the
// platform numbers differ); "unknown" outside 0..31.
const char* signame(int sig);

#ifdef __cplusplus
}

#include <functional>
#include <string>

namespace heron {

// One message whose text is already made, routed as logit routes it; the text
// carries no line end.  For library code that builds a message in parts.
void logText(int priority, const std::string& text);

// The two places a message can end: the system log, with its priority, and
// standard error.  Each is handed one whole message, "%m" expanded, without a
// line end.  The defaults are syslog (in openlogit's zone) and standard error
// with a newline added.
struct LogEnds {
  std::function<void(int priority, const std::string& text)> systemLog;
  std::function<void(const std::string& text)> standardError;
};

// Puts other ends in place, so that a test can read the messages in memory;
// an empty member puts that end's default back.  Returns the ends replaced.
// Not for use while other threads may report.
LogEnds setLogEnds(LogEnds ends);

// Whether information lines (LOG_INFO and LOG_DEBUG: a file opened, a
// signal caught, a midnight rollover) reach either end.  On by default, so
// the daemons log them; the tools turn them off unless run with -v, so that
// their users see warnings, errors and their own output only.
void showInformation(bool on);

}  // namespace heron
#endif

#endif
