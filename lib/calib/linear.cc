// linear: out = slope * volts + intercept.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<Line> lines;
}

extern "C" int linear(double*, calib_input in, float* out, int ichan) {
  return line_convert(lines[ichan], in.volts, out);
}

// Parameters: slope, intercept [numbers], unit [text, optional].
extern "C" CalibInfo* linear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  return fixed_line_init("linear", "linear 1.0", lines, 2, 3, calib_optional_unit(params, nparam, 2),
                         ichan, nchan, params, nparam, nout);
}
