// power: an exponential response above a threshold voltage,
// out = A * B^(C * volts) for volts >= V0, else 0.
#include <math.h>

#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "power 1.0";
struct Coefs {
  float v0, a, b, c;
};
UseTable<Coefs> coefs;
}  // namespace

extern "C" int power(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  const float x = in.volts;
  out[0] = x >= c.v0 ? static_cast<float>(c.a * pow(c.b, static_cast<double>(c.c) * x)) : 0.0f;
  return 0;
}

// Parameters: V0, A, B, C [numbers], unit [text, optional].
extern "C" CalibInfo* power_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam("power", nparam, 4, 5);
  Coefs c{};
  calib_param_floats(params, 0, {&c.v0, &c.a, &c.b, &c.c});
  CalibInfo* info = calib_info(kVersion, nout, {calib_optional_unit(params, nparam, 4)});
  CalibInfoSetParamString(info, "V0=%.4g, A=%.4g, B=%.4g, C=%.4g", c.v0, c.a, c.b, c.c);
  if (nchan > 0) coefs.prepare("power", ichan, nchan) = c;
  return info;
}
