// td_linear_dt: td_linear for a sensor whose samples are stamped late or
// early: each calibration record holds slope, intercept and a time
// correction in seconds that is added to the sample's time.
#include "calib/cal_use.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "td_linear_dt 1.0";
struct Use {
  CalFile cal;
  cal_select sel;
  float slope, intcpt;
  double dt;
};
UseTable<Use> uses;
}  // namespace

extern "C" int td_linear_dt(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  if (cal_select_update(&u.sel, *time)) {
    u.slope = static_cast<float>(u.sel.in_force[0]);
    u.intcpt = static_cast<float>(u.sel.in_force[1]);
    u.dt = u.sel.in_force[2];
  }
  if (!u.sel.in_force) {
    out[0] = CALIB_MISSING;
    return 0;
  }
  out[0] = u.slope * in.volts + u.intcpt;
  *time += u.dt;
  return 0;
}

// Parameters: calibration file [text] of records "slope intercept dt",
// unit [text, optional].
extern "C" CalibInfo* td_linear_dt_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 1 || nparam > 2)
    calib_init_fail("td_linear_dt", "Invalid number of parameters (%d), should be 1 or 2\n", nparam);
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, calib_optional_unit(params, nparam, 1));
  CalibInfoSetParamString(info, "\"%s\"", calib_param_string(params, 0));
  if (nchan > 0) {
    Use& u = uses.prepare("td_linear_dt", ichan, nchan);
    u.cal = calib_load_file("td_linear_dt", params, nparam, 3);
    cal_select_start(&u.sel, u.cal.get());
  }
  return info;
}
