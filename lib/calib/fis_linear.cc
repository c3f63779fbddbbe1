// fis_linear: a two-point field calibration.  Each record of the loaded
// calibration file holds two reference points (x0, y0) and (x1, y1), volts
// and the physical value read against a reference in the field; the output
// is the straight line through them.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<FileLine> uses;
}

extern "C" int fis_linear(double* time, calib_input in, float* out, int ichan) {
  out[0] = file_line_at(uses[ichan], *time, in.volts, [](const double* r, FileLine& u) {
    // Two points at the same voltage give no line: the record is unusable.
    const bool usable = r[2] != r[0];
    u.line.x0 = static_cast<float>(r[0]);
    u.line.intcpt = static_cast<float>(r[1]);
    u.line.slope = usable ? static_cast<float>((r[3] - r[1]) / (r[2] - r[0])) : 0.0f;
    return usable;
  });
  return 0;
}

// Parameters: calibration file [text] of records "x0 y0 x1 y1", unit [text,
// optional].
extern "C" CalibInfo* fis_linear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  return file_line_init("fis_linear", "fis_linear 1.0", uses, 4, ichan, nchan, params, nparam, nout);
}
