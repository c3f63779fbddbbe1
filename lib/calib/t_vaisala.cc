// t_vaisala: a quadratic air thermometer; the latest reading, per use, is
// kept in temp_vaisala for the humidity conversions.
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "t_vaisala 1.0";
struct Coefs {
  float a0, a1, a2;
};
UseTable<Coefs> coefs;
UseTable<double> latest;
}  // namespace

extern "C" int t_vaisala(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  const float x = in.volts;
  out[0] = c.a0 + c.a1 * x + c.a2 * x * x;
  temp_vaisala[ichan] = out[0];
  return 0;
}

// Parameters: A0, A1, A2 [numbers].  Output in degC.
extern "C" CalibInfo* t_vaisala_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam("t_vaisala", nparam, 3, 3);
  Coefs c{};
  calib_param_floats(params, 0, {&c.a0, &c.a1, &c.a2});
  CalibInfo* info = calib_info(kVersion, nout, {"degC"});
  CalibInfoSetParamString(info, "A0=%.2f, A1=%.2f, A2=%.2f", c.a0, c.a1, c.a2);
  if (nchan > 0) {
    coefs.prepare("t_vaisala", ichan, nchan) = c;
    latest.prepare("t_vaisala", ichan, nchan) = 1e37;
    temp_vaisala = latest.data();
    if (nchan > temp_vaisala_uses) temp_vaisala_uses = nchan;
  }
  return info;
}
