#include "calib/moist_air.h"

#include <math.h>

#include "calib/calib_common.h"

namespace {
constexpr double kA = 6.1121, kB = 18.678, kC = 257.14, kD = 234.5;
bool absent(double v) { return !(fabs(v) < CALIB_MISSING_TEST); }
}  // namespace

double moist_es(double t) {
  if (absent(t) || t <= -kC) return CALIB_MISSING;
  return kA * exp((kB - t / kD) * t / (kC + t));
}

// ln(e/A) = (B - t/D) t / (C + t) is a quadratic in t:
//   t^2 / D + (s - B) t + s C = 0 with s = ln(e/A);
// its root on the physical branch (t well below D B / 2) is the smaller one.
double moist_dew_point(double e) {
  if (absent(e) || !(e > 0)) return CALIB_MISSING;
  const double s = log(e / kA);
  const double b = s - kB, disc = b * b - 4.0 * s * kC / kD;
  if (disc < 0) return CALIB_MISSING;
  return (-b - sqrt(disc)) * kD / 2.0;
}

double moist_vapour_density(double e, double t) {
  if (absent(e) || absent(t) || !(e > 0) || t <= -273.15) return CALIB_MISSING;
  return 216.7 * e / (t + 273.15);
}

double moist_mixing_ratio(double e, double p) {
  if (absent(e) || absent(p) || !(e > 0) || !(p > e)) return CALIB_MISSING;
  return 622.0 * e / (p - e);
}
