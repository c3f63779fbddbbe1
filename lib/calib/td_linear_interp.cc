// td_linear_interp: a linear conversion whose slope and intercept drift
// between calibrations; each is interpolated in time between the two records
// of a line-form calibration file that bracket the sample, and extrapolated
// from the last two once the file is exhausted.
#include <math.h>
#include <stdio.h>

#include <memory>

#include "calib/cal_file.h"
#include "calib/conversions.h"
#include "calib/linear_family.h"
#include "site/heron_fopen.h"

namespace {
const char kVersion[] = "td_linear_interp 1.0";
struct FileCloser {
  void operator()(FILE* fp) const { fclose(fp); }
};
struct Use {
  std::unique_ptr<FILE, FileCloser> fp;  // open until the file is exhausted
  double t1, t2;  // the earlier and the later record; t2 infinite if only one
  float slope1, intcpt1, slope2, intcpt2;
};
UseTable<Use> uses;

float interpolate(double t, double t1, double t2, float a1, float a2) {
  if (isinf(t2)) return a1;
  if (t2 == t1) return a2;
  return static_cast<float>(a1 + (a2 - a1) / (t2 - t1) * (t - t1));
}
}  // namespace

extern "C" int td_linear_interp(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  const double t = *time;
  while (u.fp && t >= u.t2) {
    double tn;
    float slope = u.slope2, intcpt = u.intcpt2;
    if (read_cal_rec(u.fp.get(), &tn, 2, &slope, &intcpt) < 0) {
      u.fp.reset();  // exhausted: extrapolate from the last two records
      break;
    }
    u.t1 = u.t2;
    u.slope1 = u.slope2;
    u.intcpt1 = u.intcpt2;
    u.t2 = tn;
    u.slope2 = slope;
    u.intcpt2 = intcpt;
  }
  if (t < u.t1) {
    out[0] = CALIB_MISSING;  // before the first calibration
    return 0;
  }
  Line line;
  line.slope = interpolate(t, u.t1, u.t2, u.slope1, u.slope2);
  line.intcpt = interpolate(t, u.t1, u.t2, u.intcpt1, u.intcpt2);
  out[0] = line.at(in.volts);
  return 0;
}

// Parameters: line-form calibration file [text] of records "time slope
// intercept", unit [text, optional].
extern "C" CalibInfo* td_linear_interp_init(int ichan, int nchan, void** params, int nparam, int nout) {
  CalibInfo* info = file_line_info("td_linear_interp", kVersion, params, nparam, nout);
  if (nchan == 0) return info;
  const char* name = calib_param_string(params, 0);

  Use& u = uses.prepare("td_linear_interp", ichan, nchan);
  u.fp.reset(heron_cal_fopen(name, "r"));
  if (!u.fp) calib_init_fail("td_linear_interp", "Cannot open calibration file %s\n", name);
  if (read_cal_rec(u.fp.get(), &u.t1, 2, &u.slope1, &u.intcpt1) < 0)
    calib_init_fail("td_linear_interp", "Calibration file %s holds no record\n", name);
  u.slope2 = u.slope1;
  u.intcpt2 = u.intcpt1;
  if (read_cal_rec(u.fp.get(), &u.t2, 2, &u.slope2, &u.intcpt2) < 0) {
    u.t2 = INFINITY;
    u.fp.reset();
  }
  return info;
}
