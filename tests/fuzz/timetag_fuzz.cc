// The time-tag guard on any row of tags after any start.  Byte 0 chooses the
// input (live, standard input or a named file, both with a start time),
// bytes 1-4 the start's second of the day, then 4-byte wire-order tags.
// Every accepted time must be a midnight plus its tag and within two days
// of the previous one; a tag repeated twelve times must be believed at last.
// Run with -close_fd_mask=2: the guard reports what it tosses.
#include <arpa/inet.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "samples/Sample.h"

namespace {
const double kStartDay = 1795219200.0;  // 2026-11-21 00:00 UTC

class LiveInput : public RawDataInput {
 public:
  explicit LiveInput(double start) : RawDataInput(-1, 0, 8192) {
    t0day = kStartDay;
    lastUT = start;
    lastTT = static_cast<long>(1000.0 * (start - kStartDay));
  }
};

bool accepted(RawDataInput& in, uint32_t tt, double* last) {
  const double t = in.tt_to_secs(static_cast<long>(tt));
  if (t == RawDataInput::BIGBANG) return false;
  const double day = t - (ntohl(tt) % 86400000u) / 1000.0;
  if (!std::isfinite(t) || fabs(day - floor(day / 86400.0 + 0.5) * 86400.0) > 1e-3 || fabs(t - *last) > 2 * 86400.0)
    abort();
  *last = t;
  return true;
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  unsetenv("HERON");  // no site: tags are milliseconds of the day
  RawDataInput::tt_to_msecs(0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  uint32_t sec;
  memcpy(&sec, data + 1, 4);
  const double start = kStartDay + sec % 86400;
  std::unique_ptr<RawDataInput> in;
  std::vector<char*> names{const_cast<char*>(data[0] % 3 == 1 ? "-" : "/dev/null")};
  if (data[0] % 3 == 0)
    in.reset(new LiveInput(start));
  else
    in.reset(new FilesRawDataInput(0, names, {start}));
  double last = start;
  uint32_t tt = htonl(43200000);
  for (size_t i = 5; i + 4 <= size; i += 4) {
    memcpy(&tt, data + i, 4);
    accepted(*in, tt, &last);
  }
  tt = htonl(ntohl(tt) % 86400000u);
  int k = 0;
  while (!accepted(*in, tt, &last))
    if (++k == 12) abort();
  return 0;
}
