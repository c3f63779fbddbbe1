// The program's clocks.  Every wait, interval and deadline counts on the
// monotonic clock, which no setting of the system time moves; the wall
// clock only dates samples and names files.  A clock that cannot be read
// is oru::IOException naming it.
#ifndef HERON_CLOCK_H
#define HERON_CLOCK_H

namespace heron {

// Seconds of the monotonic clock, from an unspecified origin.
double monotonicSeconds();
// The same clock in whole milliseconds, for the deadlines of the
// remote-procedure waits.
long long monotonicMs();
// Seconds since 1970-01-01 00:00 UTC, with the fraction.
double wallSeconds();

}  // namespace heron

#endif
