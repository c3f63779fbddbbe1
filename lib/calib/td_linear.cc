// td_linear: a linear conversion whose slope and intercept come from a loaded
// calibration file, the record in force at the sample time.
#include "calib/cal_use.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "td_linear 1.0";
struct Use {
  CalFile cal;
  cal_select sel;
  float slope, intcpt;
};
UseTable<Use> uses;
}  // namespace

extern "C" int td_linear(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  if (cal_select_update(&u.sel, *time)) {
    u.slope = static_cast<float>(u.sel.in_force[0]);
    u.intcpt = static_cast<float>(u.sel.in_force[1]);
  }
  out[0] = u.sel.in_force ? u.slope * in.volts + u.intcpt : CALIB_MISSING;
  return 0;
}

// Parameters: calibration file [text] of records "slope intercept", unit
// [text, optional].
extern "C" CalibInfo* td_linear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 1 || nparam > 2)
    calib_init_fail("td_linear", "Invalid number of parameters (%d), should be 1 or 2\n", nparam);
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, calib_optional_unit(params, nparam, 1));
  CalibInfoSetParamString(info, "\"%s\"", calib_param_string(params, 0));
  if (nchan > 0) {
    Use& u = uses.prepare("td_linear", ichan, nchan);
    u.cal = calib_load_file("td_linear", params, nparam, 2);
    cal_select_start(&u.sel, u.cal.get());
  }
  return info;
}
