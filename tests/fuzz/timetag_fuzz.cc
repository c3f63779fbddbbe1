// Fuzzes the time-tag guard with any row of tags after any start.
//
// Input: byte 0 chooses the input (live, standard input with a start time,
// named file with a start time), bytes 1-4 the start's second of the day,
// then 4-byte tags (milliseconds of the day, big-endian, as on the wire).
// Checked: every accepted time is a UTC midnight plus the tag, within a
// day of the previous accepted time or its start; and a tag repeated twelve
// times in a row is believed at last.
#include <arpa/inet.h>
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

#include "Sample.h"

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

void check(long ms, double t, double* last) {
  if (t == RawDataInput::BIGBANG) return;
  if (!std::isfinite(t)) abort();
  const double day = t - (ms % 86400000) / 1000.0;
  if (fabs(day - floor(day / 86400.0 + 0.5) * 86400.0) > 1e-3) abort();
  if (fabs(t - *last) > 2 * 86400.0) abort();
  *last = t;
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Tags are milliseconds of the day: with no site to read, that is the
  // type taken.  (Run with -close_fd_mask=2 to keep the guard's messages
  // out of the fuzzer's report.)
  unsetenv("HERON");
  RawDataInput::tt_to_msecs(0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  uint32_t sec;
  memcpy(&sec, data + 1, 4);
  const double start = kStartDay + sec % 86400;
  std::unique_ptr<RawDataInput> in;
  std::vector<char*> names;
  switch (data[0] % 3) {
    case 0: in.reset(new LiveInput(start)); break;
    case 1:
      names.push_back(const_cast<char*>("-"));
      in.reset(new FilesRawDataInput(0, names, {start}));
      break;
    default:
      names.push_back(const_cast<char*>("/dev/null"));
      in.reset(new FilesRawDataInput(0, names, {start}));
      break;
  }
  double last = start;
  uint32_t tt = htonl(43200000);
  for (size_t i = 5; i + 4 <= size; i += 4) {
    memcpy(&tt, data + i, 4);
    check(static_cast<long>(ntohl(tt)), in->tt_to_secs(static_cast<long>(tt)), &last);
  }
  uint32_t ms = ntohl(tt);
  if (ms >= 86400000u) ms %= 86400000u;
  tt = htonl(ms);
  bool believed = false;
  for (int k = 0; k < 12 && !believed; ++k) {
    const double t = in->tt_to_secs(static_cast<long>(tt));
    check(static_cast<long>(ms), t, &last);
    believed = t != RawDataInput::BIGBANG;
  }
  if (!believed) abort();
  return 0;
}
