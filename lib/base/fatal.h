// The one way the library and its programs end the process with status 1
// where a fault leaves nothing to recover (a bad calibration configuration,
// an ingest connection that cannot be made, a refused command line).  The
// caller has already said why, on standard error or in the log.
#ifndef HERON_FATAL_H
#define HERON_FATAL_H

#ifdef __cplusplus
extern "C" {
#endif

// Flushes the standard streams and exits with status 1.
[[noreturn]] void exit_status_1(void);

#ifdef __cplusplus
}
#endif

#endif
