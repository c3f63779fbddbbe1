// td_linear_dt: td_linear for a sensor whose samples are stamped late or
// early: each calibration record holds slope, intercept and a time
// correction in seconds that is added to the sample's time.
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
UseTable<FileLine> uses;
}

extern "C" int td_linear_dt(double* time, calib_input in, float* out, int ichan) {
  FileLine& use = uses[ichan];
  out[0] = file_line_at(use, *time, in.volts, [](const double* r, FileLine& u) {
    u.line = line_of_record(r);
    u.dt = r[2];
    return true;
  });
  if (use.usable) *time += use.dt;
  return 0;
}

// Parameters: calibration file [text] of records "slope intercept dt",
// unit [text, optional].
extern "C" CalibInfo* td_linear_dt_init(int ichan, int nchan, void** params, int nparam, int nout) {
  return file_line_init("td_linear_dt", "td_linear_dt 1.0", uses, 3, ichan, nchan, params, nparam, nout);
}
