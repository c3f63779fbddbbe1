// rad_net_Q7: net radiation from a REBS Q*7 / Q*7.1 net radiometer whose
// thermopile signal (mV) arrives as a float field of a record, with the
// radiometer's separate calibration factors for positive and negative
// signals and the maker's correction for the wind's cooling of the domes:
//   V >= 0:  Rn = V Fp (1 + 0.066 * 0.2 U / (0.066 + 0.2 U))
//   V <  0:  Rn = V Fn (0.00174 U + 0.99755)
// with U the wind speed in m/s, from a float field of the same record or
// fixed.  Outputs: the corrected and the uncorrected net radiation, W/m^2.
#include <math.h>

#include "calib/conversions.h"
#include "calib/serial_layout.h"

namespace {
const char kModule[] = "rad_net_Q7";
enum { kWindNone = -2, kWindFixed = -1 };

struct Use {
  float fp, fn;
  SerialLayout mv;  // the thermopile field
  int wind;         // wind field's byte offset, or kWindFixed, kWindNone
  float fixed;      // the fixed wind speed
};
UseTable<Use> uses;
}  // namespace

extern "C" int rad_net_Q7(double*, calib_input in, float* out, int ichan) {
  const Use& u = uses[ichan];
  const float v = u.mv.field(in.raw, 0);
  if (v >= CALIB_MISSING_TEST) {
    out[0] = out[1] = CALIB_MISSING;
    return 0;
  }
  const double raw = v >= 0 ? v * static_cast<double>(u.fp) : v * static_cast<double>(u.fn);
  double w = u.wind == kWindFixed ? u.fixed : u.wind >= 0 ? u.mv.read(in.raw + u.wind) : 0;
  if (!(w >= 0 && w < CALIB_MISSING_TEST)) {
    out[0] = CALIB_MISSING;  // no wind, no correction
  } else if (u.wind == kWindNone) {
    out[0] = static_cast<float>(raw);
  } else {
    const double k = v >= 0 ? 1 + 0.066 * 0.2 * w / (0.066 + 0.2 * w) : 0.00174 * w + 0.99755;
    out[0] = static_cast<float>(raw * k);
  }
  out[1] = static_cast<float>(raw);
  return 0;
}

// Parameters: Fp, Fn [numbers, W/m^2 per mV]; byte order [text, "big" or
// "little"]; byte offset of the mV float [number]; wind [number: the byte
// offset of a float wind-speed field, -1 for a fixed speed, -2 for no
// correction]; the fixed speed [number, m/s, only with -1].
extern "C" CalibInfo* rad_net_Q7_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam(kModule, nparam, 5, 6);
  Use u{};
  calib_param_floats(params, 0, {&u.fp, &u.fn});
  u.mv = serial_layout(kModule, SerialKind::Float, params + 2, 2, 1);
  const double wind = calib_param_double(params, 4);
  if (wind != floor(wind) || wind < kWindNone || wind > 251)
    calib_init_fail(kModule, "Wind source %g is not a byte offset from 0 to 251, -1 or -2\n", wind);
  u.wind = static_cast<int>(wind);
  if ((u.wind == kWindFixed) != (nparam == 6))
    calib_init_fail(kModule, "A fixed wind speed is given with wind source -1, and only then\n");
  if (nparam == 6) u.fixed = static_cast<float>(calib_param_double(params, 5));
  if (nchan > 0 && nout != 2) calib_init_fail(kModule, "Invalid number of outputs (%d), should be 2\n", nout);
  CalibInfo* info = calib_info("rad_net_Q7 1.0", nout, {"W/m^2", "W/m^2"});
  CalibInfoSetParamString(info, "Fp=%.3g, Fn=%.3g, %s, wind=%d", u.fp, u.fn, serial_layout_summary(u.mv).c_str(),
                          u.wind);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = u;
  return info;
}
