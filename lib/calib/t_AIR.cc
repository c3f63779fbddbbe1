// t_AIR: a linear air thermometer whose latest reading, per use, is kept in
// temp_AIR for the humidity conversions.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<Line> lines;
UseTable<float> latest;
}  // namespace

extern "C" int t_AIR(double*, calib_input in, float* out, int ichan) {
  out[0] = lines[ichan].at(in.volts);
  temp_AIR[ichan] = out[0];
  return 0;
}

// Parameters: slope, intercept [numbers].  Output in degC.
extern "C" CalibInfo* t_AIR_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam("t_AIR", nparam, 2, 2);
  CalibInfo* info = fixed_line_init("t_AIR", "t_AIR 1.0", lines, "degC", ichan, nchan, params, nout);
  if (nchan > 0) {
    latest.prepare("t_AIR", ichan, nchan) = CALIB_MISSING;
    temp_AIR = latest.data();
  }
  return info;
}
