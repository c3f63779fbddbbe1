// td_linear: a linear conversion whose slope and intercept come from a loaded
// calibration file, the record in force at the sample time.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<FileLine> uses;
}

extern "C" int td_linear(double* time, calib_input in, float* out, int ichan) {
  out[0] = file_line_at(uses[ichan], *time, in.volts, [](const double* r, FileLine& u) {
    u.line = line_of_record(r);
    return true;
  });
  return 0;
}

// Parameters: calibration file [text] of records "slope intercept", unit
// [text, optional].
extern "C" CalibInfo* td_linear_init(int ichan, int nchan, void** params, int nparam, int nout) {
  return file_line_init("td_linear", "td_linear 1.0", uses, 2, ichan, nchan, params, nparam, nout);
}
