// teco: the recorder output of a Thermo Electron (TECO) analyser, such as
// the Model 49 UV photometric ozone analyser: a voltage proportional to the
// concentration over the selected full scale.
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kModule[] = "teco";
// The output's own range, with a margin for its zero and span errors;
// beyond it the voltage is not the analyser's.
constexpr float kLow = -0.05f, kHigh = 1.05f;
struct Use {
  float full_scale, full_volts, zero;
};
UseTable<Use> uses;
}  // namespace

extern "C" int teco(double*, calib_input in, float* out, int ichan) {
  const Use& u = uses[ichan];
  const float f = in.volts / u.full_volts;
  out[0] = f >= kLow && f <= kHigh ? u.zero + f * u.full_scale : CALIB_MISSING;
  return 0;
}

// Parameters: full-scale concentration [number], full-scale voltage
// [number, V], zero offset [number, optional, 0], unit [text, optional,
// "ppb"].
extern "C" CalibInfo* teco_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam(kModule, nparam, 2, 4);
  Use u{0, 0, 0};
  calib_param_floats(params, 0, {&u.full_scale, &u.full_volts});
  if (nparam > 2) u.zero = static_cast<float>(calib_param_double(params, 2));
  if (!(u.full_volts > 0)) calib_init_fail(kModule, "The full-scale voltage %g is not above 0\n", u.full_volts);
  CalibInfo* info = calib_info("teco 1.0", nout, {nparam > 3 ? calib_param_string(params, 3) : "ppb"});
  CalibInfoSetParamString(info, "full scale %.4g at %.4g V, zero %.4g", u.full_scale, u.full_volts, u.zero);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = u;
  return info;
}
