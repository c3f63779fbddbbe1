#include "rpc/rpc_wait.h"

#include <errno.h>
#include <time.h>

namespace {
bool haveMask = false;
sigset_t waitMask;
int (*stopAsked)(void) = nullptr;
}  // namespace

void rpc_wait_signals(const sigset_t* mask, int (*stop)(void)) {
  haveMask = mask != nullptr;
  if (haveMask) waitMask = *mask;
  stopAsked = haveMask ? stop : nullptr;
}

int rpc_wait(struct pollfd* p, int ms, int* stopped) {
  *stopped = 0;
  if (!haveMask) return poll(p, 1, ms);
  const struct timespec limit = {ms / 1000, (ms % 1000) * 1000000L};
  const int n = ppoll(p, 1, &limit, &waitMask);
  if (n < 0 && errno == EINTR && stopAsked != nullptr && stopAsked()) *stopped = 1;
  return n;
}

long long rpc_monotonic_ms(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);  // cannot fail with this clock
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}
