// fis_linear: a two-point field calibration.  Each record of the loaded
// calibration file holds two reference points (x0, y0) and (x1, y1), volts
// and the physical value read against a reference in the field; the output
// is the straight line through them.
#include "calib/cal_use.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "fis_linear 1.0";
struct Use {
  CalFile cal;
  cal_select sel;
  bool usable;  // the record in force gives a line
  float x0, y0, slope;
};
UseTable<Use> uses;
}  // namespace

extern "C" int fis_linear(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  if (cal_select_update(&u.sel, *time)) {
    const double* r = u.sel.in_force;
    // Two points at the same voltage give no line: the record is unusable.
    u.usable = r[2] != r[0];
    u.x0 = static_cast<float>(r[0]);
    u.y0 = static_cast<float>(r[1]);
    u.slope = u.usable ? static_cast<float>((r[3] - r[1]) / (r[2] - r[0])) : 0.0f;
  }
  out[0] = u.usable ? u.y0 + u.slope * (in.volts - u.x0) : CALIB_MISSING;
  return 0;
}

// Parameters: calibration file [text] of records "x0 y0 x1 y1", unit [text,
// optional].
extern "C" CalibInfo* fis_linear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 1 || nparam > 2)
    calib_init_fail("fis_linear", "Invalid number of parameters (%d), should be 1 or 2\n", nparam);
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, calib_optional_unit(params, nparam, 1));
  CalibInfoSetParamString(info, "\"%s\"", calib_param_string(params, 0));
  if (nchan > 0) {
    Use& u = uses.prepare("fis_linear", ichan, nchan);
    u.cal = calib_load_file("fis_linear", params, nparam, 4);
    cal_select_start(&u.sel, u.cal.get());
  }
  return info;
}
