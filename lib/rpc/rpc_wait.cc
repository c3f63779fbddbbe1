#include "rpc/rpc_wait.h"

#include <errno.h>

namespace {
int signalFd = -1;
int (*stopAsked)(void) = nullptr;
}  // namespace

void rpc_wait_signals(int fd, int (*stop)(void)) {
  signalFd = stop != nullptr ? fd : -1;
  stopAsked = stop;
}

int rpc_wait(struct pollfd* p, int ms, int* stopped) {
  *stopped = 0;
  if (signalFd < 0) return poll(p, 1, ms);
  struct pollfd both[2] = {*p, {signalFd, POLLIN, 0}};
  const int n = poll(both, 2, ms);
  p->revents = both[0].revents;
  if (n <= 0 || both[1].revents == 0) return n;
  *stopped = stopAsked() != 0;
  if (!*stopped && p->revents != 0) return 1;
  errno = EINTR;
  return -1;
}
