// wind_rmy: a propeller-vane anemometer record of speed and direction (two
// 4-byte floats), turned into wind components by the meteorological
// convention (the direction the wind blows from, clockwise from north).
#include <math.h>

#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"

namespace {
const char kVersion[] = "wind_rmy 1.0";
constexpr double kDegToRad = 0.017453292519943295;
UseTable<int> nouts;
}  // namespace

extern "C" int wind_rmy(double*, calib_input in, float* out, int ichan) {
  const float speed = flop_float(in.raw);
  const float dir = flop_float(in.raw + 4);
  const double a = dir * kDegToRad;
  float v[4] = {static_cast<float>(-speed * sin(a)), static_cast<float>(-speed * cos(a)), speed, dir};
  const int n = nouts[ichan] < 4 ? nouts[ichan] : 4;
  for (int i = 0; i < n; ++i) out[i] = v[i];
  return 0;
}

// No parameters.  Outputs: u, v, speed (m/s), direction (deg).
extern "C" CalibInfo* wind_rmy_init(int ichan, int nchan, void**, int nparam, int nout) {
  calib_check_nparam("wind_rmy", nparam, 0, 0);
  CalibInfo* info = calib_info(kVersion, nout, {"m/s", "m/s", "m/s", "deg"});
  if (nchan > 0) nouts.prepare("wind_rmy", ichan, nchan) = nout;
  return info;
}
