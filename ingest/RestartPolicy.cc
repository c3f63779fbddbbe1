#include "RestartPolicy.h"

#include <algorithm>

void RestartPolicy::started(double now) {
  _running = true;
  _startedAt = now;
}

void RestartPolicy::ended(double now) {
  _running = false;
  const double ran = now - _startedAt;
  if (ran < kQuickEnd) {
    _delay = _delay == 0 ? kFirstDelay : std::min(2 * _delay, kMaxDelay);
    _due = now + _delay;
  } else if (ran >= kSettled) {
    _delay = 0;
  }
}

bool RestartPolicy::failed(double now, int* count) {
  if (!_failing) {
    _failing = true;
    _failures = 0;
    _reportedAt = now;
    *count = 0;
    return true;
  }
  ++_failures;
  if (now - _reportedAt < kReportEvery) return false;
  *count = _failures;
  _failures = 0;
  _reportedAt = now;
  return true;
}
