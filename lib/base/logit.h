// Reporting for the ingest programs: to the system log once openlogit has been
// called (daemon mode), to standard error otherwise.  "%m" works in both forms.
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
#endif

#endif
