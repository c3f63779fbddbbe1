#include "rpc/chan_subs.h"

namespace {
bool inRange(int n) { return n >= 0 && n < CHAN_MASK_CHANNELS; }
}  // namespace

extern "C" int number_of_chans(const uint32_t* mask) {
  int count = 0;
  for (int i = 0; i < CHAN_MASK_WORDS; ++i) {
    uint32_t w = mask[i];
    while (w) {
      w &= w - 1;  // drop the lowest set bit
      ++count;
    }
  }
  return count;
}

extern "C" void set_channel(uint32_t* mask, int n) {
  if (inRange(n)) mask[n / 32] |= UINT32_C(1) << (n % 32);
}

extern "C" void clear_channel(uint32_t* mask, int n) {
  if (inRange(n)) mask[n / 32] &= ~(UINT32_C(1) << (n % 32));
}

extern "C" void clear_all_channels(uint32_t* mask) {
  for (int i = 0; i < CHAN_MASK_WORDS; ++i) mask[i] = 0;
}

extern "C" void set_all_channels(uint32_t* mask) {
  for (int i = 0; i < CHAN_MASK_WORDS; ++i) mask[i] = ~UINT32_C(0);
}

extern "C" int channel_is_set(const uint32_t* mask, int n) {
  return inRange(n) && (mask[n / 32] >> (n % 32)) & 1u;
}

extern "C" int next_channel(const uint32_t* mask) {
  for (int i = 0; i < CHAN_MASK_WORDS; ++i) {
    if (mask[i]) return i * 32 + __builtin_ctz(mask[i]);
  }
  return -1;
}
