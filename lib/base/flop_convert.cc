#include "base/flop_convert.h"

#include <string.h>

namespace {
// Copies width bytes into a value, reversed or not, without alignment needs.
template <typename T>
T load(const void* p, bool reverse) {
  unsigned char b[sizeof(T)];
  const unsigned char* src = static_cast<const unsigned char*>(p);
  for (size_t i = 0; i < sizeof(T); ++i) b[i] = reverse ? src[sizeof(T) - 1 - i] : src[i];
  T v;
  memcpy(&v, b, sizeof v);
  return v;
}
}  // namespace

extern "C" float flop_float(const void* p) { return load<float>(p, true); }
extern "C" float noflop_float(const void* p) { return load<float>(p, false); }
extern "C" int32_t flop_long(const void* p) { return load<int32_t>(p, true); }
extern "C" int32_t noflop_long(const void* p) { return load<int32_t>(p, false); }
extern "C" uint32_t flop_ulong(const void* p) { return load<uint32_t>(p, true); }
extern "C" uint32_t noflop_ulong(const void* p) { return load<uint32_t>(p, false); }
extern "C" int16_t flop_short(const void* p) { return load<int16_t>(p, true); }
extern "C" int16_t noflop_short(const void* p) { return load<int16_t>(p, false); }
extern "C" uint16_t flop_ushort(const void* p) { return load<uint16_t>(p, true); }
extern "C" uint16_t noflop_ushort(const void* p) { return load<uint16_t>(p, false); }
