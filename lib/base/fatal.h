// The one way the library and its programs end the process with status 1
// where a fault leaves nothing to recover (a bad calibration configuration,
// an ingest connection that cannot be made, a refused command line).  The
// caller has already said why, on standard error or in the log.
#ifndef HERON_FATAL_H
#define HERON_FATAL_H

#ifdef __cplusplus
extern "C" {
#endif

// Flushes the standard streams and hands over to the ending installed, by
// default exit(1).  An ending that returns is followed by exit(1).
[[noreturn]] void exit_status_1(void);

#ifdef __cplusplus
}

namespace heron {

// What exit_status_1 does after the flush.  A test puts in one that throws,
// so that a fault which would end the program can be checked in-process.
using Ending = void (*)();

// Installs an ending (null: the default exit(1)); returns the one replaced.
Ending setEnding(Ending ending);

}  // namespace heron
#endif

#endif
