// t_AIR: a linear air thermometer whose latest reading, per use, is kept in
// temp_AIR for the humidity conversions.
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "t_AIR 1.0";
struct Coefs {
  float slope, intcpt;
};
UseTable<Coefs> coefs;
UseTable<float> latest;
}  // namespace

extern "C" int t_AIR(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  out[0] = c.slope * in.volts + c.intcpt;
  temp_AIR[ichan] = out[0];
  return 0;
}

// Parameters: slope, intercept [numbers].  Output in degC.
extern "C" CalibInfo* t_AIR_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam != 2) calib_init_fail("t_AIR", "Invalid number of parameters, should be 2\n");
  const float slope = static_cast<float>(calib_param_double(params, 0));
  const float intcpt = static_cast<float>(calib_param_double(params, 1));
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, "degC");
  CalibInfoSetParamString(info, "slope=%.2f, intcpt=%.2f", slope, intcpt);
  if (nchan > 0) {
    coefs.prepare("t_AIR", ichan, nchan) = Coefs{slope, intcpt};
    latest.prepare("t_AIR", ichan, nchan) = CALIB_MISSING;
    temp_AIR = latest.data();
  }
  return info;
}
