// q_kh2o: water-vapour density from a krypton hygrometer's signal by Beer's
// law.  The signal V falls as vapour absorbs the lamp's light over the path:
// ln V = ln V0 - x kw rho, so rho = (ln V0 - ln V) / (x kw).
#include <math.h>

#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "q_kh2o 1.0";
struct Coefs {
  double xkw;   // path length (cm) times absorption coefficient (m^3 g^-1 cm^-1)
  double lnv0;  // ln of the signal at zero vapour
};
UseTable<Coefs> coefs;
}  // namespace

extern "C" int q_kh2o(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  // A dead or inverted signal has no logarithm: no density, not a huge one.
  out[0] = in.volts > 0 ? static_cast<float>((c.lnv0 - log(in.volts)) / c.xkw) : CALIB_MISSING;
  return 0;
}

// Parameters: path length x in cm, absorption coefficient kw in
// m^3 g^-1 cm^-1, ln(V0) [numbers].  Output in g/m^3.
extern "C" CalibInfo* q_kh2o_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam("q_kh2o", nparam, 3, 3);
  const double x = calib_param_double(params, 0), kw = calib_param_double(params, 1);
  Coefs c{x * kw, calib_param_double(params, 2)};
  if (!(c.xkw != 0) || !isfinite(c.xkw) || !isfinite(c.lnv0))
    calib_init_fail("q_kh2o", "Path length %g cm, kw %g and ln(V0) %g give no absorption law\n", x, kw,
                    c.lnv0);
  CalibInfo* info = calib_info(kVersion, nout, {"g/m^3"});
  CalibInfoSetParamString(info, "x=%.3f, kw=%.4f, lnV0=%.4f", x, kw, c.lnv0);
  if (nchan > 0) coefs.prepare("q_kh2o", ichan, nchan) = c;
  return info;
}
