#include "calib/campbell_words.h"

#include "calib/calib_common.h"

namespace {
constexpr float kPow10[6] = {1.0f, 10.0f, 100.0f, 1000.0f, 10000.0f, 100000.0f};
}  // namespace

CampbellWord campbell_word(const unsigned char* w, CampbellLogger logger) {
  const unsigned b = w[0];
  if ((b & 0x1c) != 0x1c) return CampbellWord::Low;  // D, E, F not all 1
  if ((b & 0x20) == 0) return CampbellWord::HighFirst;  // xx0111xx
  switch (b >> 6) {
    case 0: return CampbellWord::HighSecond;  // 001111xx
    case 1: return b == 0x7f && w[1] == 0 ? CampbellWord::Dummy : CampbellWord::Invalid;
    case 3:
      if (logger == CampbellLogger::CR10 || (b & 0x02) == 0) return CampbellWord::Start;
      return CampbellWord::Invalid;  // 1111111H is no 21X array start
    default: return CampbellWord::Invalid;  // 101111xx
  }
}

float campbell_low(const unsigned char* w) {
  const float m = static_cast<float>(((w[0] & 0x1f) << 8) | w[1]);
  const float v = m / kPow10[(w[0] >> 5) & 3];
  return (w[0] & 0x80) ? -v : v;
}

float campbell_high(const unsigned char* w) {
  const unsigned b0 = w[0], b2 = w[2];
  if ((b0 & 0x3c) != 0x1c || (b2 & 0xfc) != 0x3c) return CALIB_MISSING;
  const unsigned e = 4 * ((b0 >> 1) & 1) + 2 * (b0 & 1) + (b0 >> 7);
  if (e > 5) return CALIB_MISSING;
  const float m = static_cast<float>(((b2 & 1u) << 16) | (static_cast<unsigned>(w[1]) << 8) | w[3]);
  const float v = m / kPow10[e];
  return (b0 & 0x40) ? -v : v;
}

int campbell_array_id(const unsigned char* w, CampbellLogger logger) {
  if (campbell_word(w, logger) != CampbellWord::Start) return -1;
  const int high = logger == CampbellLogger::CR10 ? (w[0] & 3) : (w[0] & 1);
  return high << 8 | w[1];
}
