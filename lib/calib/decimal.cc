#include "calib/decimal.h"

#include <float.h>
#include <stdint.h>
#include <stdlib.h>

namespace heron {
namespace {

// One rounding per operation: no wider intermediate precision.
static_assert(FLT_EVAL_METHOD == 0, "the exact path needs double arithmetic without excess precision");

// 10^0 .. 10^22, each exactly representable as a double.
constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kMaxPow10 = 22;
constexpr uint64_t kMaxExact = uint64_t{1} << 53;  // the largest significand a double holds exactly
constexpr int kMaxDigits = 19;                     // significant digits that cannot overflow uint64_t

bool digit(char c) { return c >= '0' && c <= '9'; }

// Reads "[blanks][+-]digits[.digits][(e|E)[+-]digits]" into the significand m and the
// power of ten e; false (the caller falls back to strtod) for anything else or
// for more digits than m holds.
bool scan(const char*& p, bool& negative, uint64_t& m, int& e) {
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;  // strtod's blanks in the "C" locale
  negative = *p == '-';
  if (*p == '+' || *p == '-') ++p;
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) return false;  // hexadecimal
  m = 0;
  e = 0;
  int significant = 0;
  bool any = false;
  for (; digit(*p); ++p, any = true) {
    if (m == 0 && *p == '0') continue;  // leading zeros carry no digit
    if (++significant > kMaxDigits) return false;
    m = m * 10 + static_cast<uint64_t>(*p - '0');
  }
  if (*p == '.') {
    const char* frac = p + 1;
    for (p = frac; digit(*p); ++p, any = true) {
      --e;
      if (m == 0 && *p == '0') continue;
      if (++significant > kMaxDigits) return false;
      m = m * 10 + static_cast<uint64_t>(*p - '0');
    }
  }
  if (!any) return false;
  if (*p == 'e' || *p == 'E') {
    const char* q = p + 1;
    const bool down = *q == '-';
    if (*q == '+' || *q == '-') ++q;
    if (digit(*q)) {  // else the number ends before the 'e', as strtod ends it
      int x = 0;
      for (; digit(*q); ++q)
        if ((x = x * 10 + (*q - '0')) > 9999) return false;
      e += down ? -x : x;
      p = q;
    }
  }
  return true;
}

}  // namespace

double decimal_strtod(const char* text, char** end) {
  const char* p = text;
  bool negative;
  uint64_t m;
  int e;
  if (scan(p, negative, m, e) && m <= kMaxExact && e >= -kMaxPow10 && e <= kMaxPow10) {
    double v = static_cast<double>(m);
    v = e < 0 ? v / kPow10[-e] : v * kPow10[e];
    if (end) *end = const_cast<char*>(p);
    return negative ? -v : v;
  }
  return strtod(text, end);
}

}  // namespace heron
