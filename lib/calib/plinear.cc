// plinear: a linear pressure sensor whose result is published as the
// station pressure for the humidity and gas conversions.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<Line> lines;
}

extern "C" int plinear(double*, calib_input in, float* out, int ichan) {
  return line_convert(lines[ichan], in.volts, out, &sharedValues[SHARED_PRESSURE]);
}

// Parameters: slope, intercept [numbers], unit [text, optional], initial
// station pressure in mb [number, optional].
extern "C" CalibInfo* plinear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  CalibInfo* info = fixed_line_init("plinear", "plinear 1.0", lines, 2, 4,
                                    calib_optional_unit(params, nparam, 2), ichan, nchan, params, nparam, nout);
  if (nchan > 0 && nparam > 3) sharedValues[SHARED_PRESSURE] = static_cast<float>(calib_param_double(params, 3));
  return info;
}
