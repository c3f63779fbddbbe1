// plinear: a linear pressure sensor whose result is published as the
// station pressure for the humidity and gas conversions.
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "plinear 1.0";
struct Coefs {
  float slope, intcpt;
};
UseTable<Coefs> coefs;
}  // namespace

extern "C" int plinear(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  out[0] = c.slope * in.volts + c.intcpt;
  sharedValues[SHARED_PRESSURE] = out[0];
  return 0;
}

// Parameters: slope, intercept [numbers], unit [text, optional], initial
// station pressure in mb [number, optional].
extern "C" CalibInfo* plinear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 2 || nparam > 4)
    calib_init_fail("plinear", "Invalid number of parameters (%d), should be 2 to 4\n", nparam);
  const float slope = static_cast<float>(calib_param_double(params, 0));
  const float intcpt = static_cast<float>(calib_param_double(params, 1));
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, calib_optional_unit(params, nparam, 2));
  CalibInfoSetParamString(info, "slope=%.2f, intcpt=%.2f", slope, intcpt);
  if (nchan > 0) {
    coefs.prepare("plinear", ichan, nchan) = Coefs{slope, intcpt};
    if (nparam > 3) sharedValues[SHARED_PRESSURE] = static_cast<float>(calib_param_double(params, 3));
  }
  return info;
}
