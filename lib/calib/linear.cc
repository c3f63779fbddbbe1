// linear: out = slope * volts + intercept.
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "linear 1.0";
struct Coefs {
  float slope, intcpt;
};
UseTable<Coefs> coefs;
}  // namespace

extern "C" int linear(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  out[0] = c.slope * in.volts + c.intcpt;
  return 0;
}

// Parameters: slope, intercept [numbers], unit [text, optional].
extern "C" CalibInfo* linear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 2 || nparam > 3)
    calib_init_fail("linear", "Invalid number of parameters (%d), should be 2 or 3\n", nparam);
  const float slope = static_cast<float>(calib_param_double(params, 0));
  const float intcpt = static_cast<float>(calib_param_double(params, 1));
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, calib_optional_unit(params, nparam, 2));
  CalibInfoSetParamString(info, "slope=%.2f, intcpt=%.2f", slope, intcpt);
  if (nchan > 0) coefs.prepare("linear", ichan, nchan) = Coefs{slope, intcpt};
  return info;
}
