// thermistor: a thermistor in a divider read as volts, through the
// Steinhart-Hart form 1/T = A0 + A1 L + A2 L^2 + A3 L^3 with L = ln(K/(1000 x) - 1).
#include <math.h>

#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "thermistor 1.0";
struct Coefs {
  float a0, a1, a2, a3, k;
};
UseTable<Coefs> coefs;
}  // namespace

extern "C" int thermistor(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  const double y = c.k / (1000.0 * in.volts) - 1.0;
  // A dead input (0 V) makes y infinite: no temperature, not 0 K.
  if (!(y > 0.0) || !isfinite(y)) {
    out[0] = CALIB_MISSING;
    return 0;
  }
  const double l = log(y);
  out[0] = static_cast<float>(1.0 / (c.a0 + c.a1 * l + c.a2 * l * l + c.a3 * l * l * l));
  return 0;
}

// Parameters: A0, A1, A2, A3, K [numbers].  Output in degK.
extern "C" CalibInfo* thermistor_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam("thermistor", nparam, 5, 5);
  Coefs c{};
  calib_param_floats(params, 0, {&c.a0, &c.a1, &c.a2, &c.a3, &c.k});
  CalibInfo* info = calib_info(kVersion, nout, {"degK"});
  CalibInfoSetParamString(info, "A0=%.4e, A1=%.4e, A2=%.4e, A3=%.4e, K=%.1f", c.a0, c.a1, c.a2, c.a3,
                          c.k);
  if (nchan > 0) coefs.prepare("thermistor", ichan, nchan) = c;
  return info;
}
