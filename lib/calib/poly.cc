// poly: a polynomial in volts of order up to 5.
#include <math.h>
#include <stdio.h>

#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kVersion[] = "poly 1.0";
constexpr int kMaxCoefs = 6;
struct Coefs {
  int order;
  float a[kMaxCoefs];
};
UseTable<Coefs> coefs;
}  // namespace

extern "C" int poly(double*, calib_input in, float* out, int ichan) {
  const Coefs& c = coefs[ichan];
  const double x = in.volts;
  double sum = 0.0;
  for (int i = 0; i <= c.order; ++i) sum += c.a[i] * pow(x, i);
  out[0] = static_cast<float>(sum);
  return 0;
}

// Parameters: unit [text], then A0, A1, ... [numbers], at most six.
extern "C" CalibInfo* poly_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 2)
    calib_init_fail("poly", "Invalid number of parameters (%d), should be a unit and 1 to %d coefficients\n",
                    nparam, kMaxCoefs);
  Coefs c{};
  c.order = nparam - 2;
  if (!(c.order < kMaxCoefs))
    calib_init_fail("poly", "Assertion order[ichan] < 6 failed: %d coefficients given, at most %d\n",
                    nparam - 1, kMaxCoefs);
  char summary[kMaxCoefs * 24] = "";
  int used = 0;
  for (int i = 0; i <= c.order; ++i) {
    c.a[i] = static_cast<float>(calib_param_double(params, i + 1));
    used += snprintf(summary + used, sizeof summary - used, "A%d=%.4g,", i, c.a[i]);
  }
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, calib_param_string(params, 0));
  CalibInfoSetParamString(info, "%s", summary);
  if (nchan > 0) coefs.prepare("poly", ichan, nchan) = c;
  return info;
}
