// The time-tag guard on any row of tags after any start, in memory.  Byte 0
// chooses the guard (live, or a file believing earlier tags after 3 or 10),
// bytes 1-4 the start's second of the day, then 4-byte wire-order tags.
// Every accepted time must be a midnight plus its tag and within two days
// of the previous one; a tag repeated twelve times must be believed at last.
// Run with -close_fd_mask=2: the guard reports what it tosses.
#include <arpa/inet.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "samples/TimeTagGuard.h"

namespace {
const double kStartDay = 1795219200.0;  // 2026-11-21 00:00 UTC

bool accepted(TimeTagGuard& g, bool live, uint32_t tt, double* last) {
  const long ms = g.msecs(static_cast<long>(tt));
  double t;
  if (g.isUsual(ms, t))
    g.acceptUsual(ms, t);
  else if ((t = g.guarded(ms, "fuzz", live)) == TimeTagGuard::BIGBANG)
    return false;
  const double day = t - (ntohl(tt) % 86400000u) / 1000.0;
  if (!std::isfinite(t) || fabs(day - floor(day / 86400.0 + 0.5) * 86400.0) > 1e-3 || fabs(t - *last) > 2 * 86400.0)
    abort();
  *last = t;
  return true;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  uint32_t sec;
  memcpy(&sec, data + 1, 4);
  const double start = kStartDay + sec % 86400;
  const bool live = data[0] % 3 == 0;
  TimeTagGuard g(msecs, start);
  g.newFile(data[0] % 3 == 2 ? 10 : 3);
  double last = start;
  uint32_t tt = htonl(43200000);
  for (size_t i = 5; i + 4 <= size; i += 4) {
    memcpy(&tt, data + i, 4);
    accepted(g, live, tt, &last);
  }
  tt = htonl(ntohl(tt) % 86400000u);
  int k = 0;
  while (!accepted(g, live, tt, &last))
    if (++k == 12) abort();
  return 0;
}
