// td_linear_interp: a linear conversion whose slope and intercept drift
// between calibrations; each is interpolated in time between the two records
// of a line-form calibration file that bracket the sample, and extrapolated
// from the last two once the file is exhausted.
#include "calib/cal_bracket.h"
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
const char kVersion[] = "td_linear_interp 1.0";
UseTable<CalBracket> uses;  // records of slope, intercept
}  // namespace

extern "C" int td_linear_interp(double* time, calib_input in, float* out, int ichan) {
  CalBracket& b = uses[ichan];
  const double t = *time;
  cal_bracket_update(&b, t);
  if (t < b.t1) {
    out[0] = CALIB_MISSING;  // before the first calibration
    return 0;
  }
  Line line;
  line.slope = cal_bracket_value(b, 0, t);
  line.intcpt = cal_bracket_value(b, 1, t);
  out[0] = line.at(in.volts);
  return 0;
}

// Parameters: line-form calibration file [text] of records "time slope
// intercept", unit [text, optional].
extern "C" CalibInfo* td_linear_interp_init(int ichan, int nchan, void** params, int nparam, int nout) {
  CalibInfo* info = file_line_info("td_linear_interp", kVersion, params, nparam, nout);
  if (nchan > 0)
    cal_bracket_open(&uses.prepare("td_linear_interp", ichan, nchan), "td_linear_interp",
                     calib_param_string(params, 0), 2);
  return info;
}
