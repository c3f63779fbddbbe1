// q_kh2o: water-vapour density from a krypton hygrometer's signal by Beer's
// law.  The signal V falls as vapour absorbs the lamp's light over the path:
// ln V = ln V0 - x kw rho, so rho = (ln V0 - ln V) / (x kw).  The lamp and
// window age, so the coefficients come from a line-form calibration file
// and are interpolated in time between the records that bracket the sample.
#include <float.h>
#include <math.h>

#include "calib/cal_bracket.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "q_kh2o 1.0";
// Record values: path length x (cm), absorption coefficient kw
// (m^3 g^-1 cm^-1), ln of the signal in volts at zero vapour.
enum { kX, kKw, kLnV0, kValues };
UseTable<CalBracket> uses;
}  // namespace

extern "C" int q_kh2o(double* time, calib_input in, float* out, int ichan) {
  CalBracket& b = uses[ichan];
  cal_bracket_update(&b, *time);
  // Before the first record the first applies, after the last the last.
  const double t = fmin(fmax(*time, b.t1), b.t2);
  const double xkw = static_cast<double>(cal_bracket_value(b, kX, t)) * cal_bracket_value(b, kKw, t);
  // A dead or inverted signal has no logarithm, and a zero absorption no
  // density: missing, not a huge or non-finite number.
  const bool law = in.volts > 0 && xkw != 0 && isfinite(xkw);
  const double rho = law ? (cal_bracket_value(b, kLnV0, t) - log(in.volts)) / xkw : NAN;
  out[0] = fabs(rho) <= FLT_MAX ? static_cast<float>(rho) : CALIB_MISSING;
  return 0;
}

// Parameters: line-form calibration file [text] of records "time x kw lnV0".
// Output in g/m^3.
extern "C" CalibInfo* q_kh2o_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam("q_kh2o", nparam, 1, 1);
  const char* name = calib_param_string(params, 0);
  CalibInfo* info = calib_info(kVersion, nout, {"g/m^3"});
  CalibInfoSetParamString(info, "\"%s\"", name);
  if (nchan > 0) cal_bracket_open(&uses.prepare("q_kh2o", ichan, nchan), "q_kh2o", name, kValues);
  return info;
}
