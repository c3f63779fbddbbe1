#include "base/clock.h"

#include <errno.h>
#include <time.h>

#include "base/Exception.h"

namespace heron {
namespace {
struct timespec readClock(clockid_t id, const char* name) {
  struct timespec ts;
  if (clock_gettime(id, &ts) != 0) throw oru::IOException(name, "clock_gettime", errno);
  return ts;
}

double seconds(const struct timespec& ts) {
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}
}  // namespace

double monotonicSeconds() { return seconds(readClock(CLOCK_MONOTONIC, "CLOCK_MONOTONIC")); }

long long monotonicMs() {
  const struct timespec ts = readClock(CLOCK_MONOTONIC, "CLOCK_MONOTONIC");
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

double wallSeconds() { return seconds(readClock(CLOCK_REALTIME, "CLOCK_REALTIME")); }

}  // namespace heron
