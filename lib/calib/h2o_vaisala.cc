// h2o_vaisala: the relative-humidity channel of a Vaisala HUMICAP probe
// (HMP35, HMP45, HMP155), paired with the probe's temperature channel,
// whose latest reading t_vaisala keeps in temp_vaisala.  Outputs: relative
// humidity (%), vapour density (g/m^3), mixing ratio (g/kg) with the
// station pressure, dew point (degC).
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "calib/moist_air.h"

namespace {
const char kModule[] = "h2o_vaisala";
constexpr int kOutputs = 4;
// A humidity a little above saturation is the sensor's error, not
// supersaturation, and is taken as 100 %; beyond this it is a fault.
constexpr float kClampLimit = 103.0f;

struct Use {
  float slope, intcpt;
  int pair;  // the t_vaisala use whose temperature applies
};
UseTable<Use> uses;

float out_of(double v) { return v >= CALIB_MISSING_TEST ? CALIB_MISSING : static_cast<float>(v); }
}  // namespace

extern "C" int h2o_vaisala(double*, calib_input in, float* out, int ichan) {
  const Use& u = uses[ichan];
  const float rh = u.slope * in.volts + u.intcpt;
  out[0] = rh;
  for (int i = 1; i < kOutputs; ++i) out[i] = CALIB_MISSING;
  const double t = temp_vaisala && u.pair < temp_vaisala_uses ? temp_vaisala[u.pair] : CALIB_MISSING;
  if (!(rh > 0 && rh <= kClampLimit) || t >= CALIB_MISSING_TEST) return 0;
  const double e = (rh > 100 ? 100 : rh) / 100.0 * moist_es(t);
  if (rh > 100) out[0] = 100;
  out[1] = out_of(moist_vapour_density(e, t));
  out[2] = out_of(moist_mixing_ratio(e, sharedValues[SHARED_PRESSURE]));
  out[3] = out_of(moist_dew_point(e));
  return 0;
}

// Parameters, all optional: slope [number, %/V, 100], intercept [number, %,
// 0], the t_vaisala use to pair with [number, this use's index].
extern "C" CalibInfo* h2o_vaisala_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam(kModule, nparam, 0, 3);
  Use u{100, 0, ichan};
  if (nparam > 0) u.slope = static_cast<float>(calib_param_double(params, 0));
  if (nparam > 1) u.intcpt = static_cast<float>(calib_param_double(params, 1));
  if (nparam > 2) {
    const double pair = calib_param_double(params, 2);
    if (!(pair >= 0 && pair < 1e6) || pair != static_cast<int>(pair))
      calib_init_fail(kModule, "The paired t_vaisala use %g is not a whole number from 0\n", pair);
    u.pair = static_cast<int>(pair);
  }
  if (nchan > 0 && nout != kOutputs)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, kOutputs);
  CalibInfo* info = calib_info("h2o_vaisala 1.0", nout, {"%", "g/m^3", "g/kg", "degC"});
  CalibInfoSetParamString(info, "slope=%.2f, intcpt=%.2f, t_vaisala=%d", u.slope, u.intcpt, u.pair);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = u;
  return info;
}
