// t_AIR: a linear air thermometer whose latest reading, per use, is kept in
// temp_AIR for the humidity conversions.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<Line> lines;
UseTable<float> latest;
}  // namespace

extern "C" int t_AIR(double*, calib_input in, float* out, int ichan) {
  return line_convert(lines[ichan], in.volts, out, &temp_AIR[ichan]);
}

// Parameters: slope, intercept [numbers].  Output in degC.
extern "C" CalibInfo* t_AIR_init(int ichan, int nchan, void** params, int nparam, int nout) {
  CalibInfo* info = fixed_line_init("t_AIR", "t_AIR 1.0", lines, 2, 2, "degC", ichan, nchan, params, nparam, nout);
  if (nchan > 0) {
    latest.prepare("t_AIR", ichan, nchan) = CALIB_MISSING;
    temp_AIR = latest.data();
  }
  return info;
}
