#include "calib/cal_bracket.h"

#include <math.h>

#include "calib/cal_file.h"
#include "calib/calib_common.h"

namespace {
// read_cal_rec stores only the first n of the pointers it is given.  A value
// field that is not a number leaves its variable unchanged, so the caller
// fills v with the values in force before the call.
int read_record(CalBracket* b, double* t, float* v) {
  return read_cal_rec(b->fp.get(), t, b->n, &v[0], &v[1], &v[2]);
}
static_assert(CalBracket::kMaxValues == 3, "read_record passes three value pointers");
}  // namespace

void cal_bracket_open(CalBracket* b, const char* module, const char* name, int n) {
  b->n = n;
  b->fp.reset(open_cal_file(name));
  if (!b->fp) calib_init_fail(module, "Cannot open calibration file %s\n", name);
  if (read_record(b, &b->t1, b->v1) < 0) calib_init_fail(module, "Calibration file %s holds no record\n", name);
  for (int k = 0; k < n; ++k) b->v2[k] = b->v1[k];
  if (read_record(b, &b->t2, b->v2) < 0) {
    b->t2 = INFINITY;
    b->fp.reset();
  }
}

void cal_bracket_update(CalBracket* b, double t) {
  while (b->fp && t >= b->t2) {
    double tn;
    float v[CalBracket::kMaxValues];
    for (int k = 0; k < b->n; ++k) v[k] = b->v2[k];
    if (read_record(b, &tn, v) < 0) {
      b->fp.reset();  // exhausted: keep the last two records
      return;
    }
    b->t1 = b->t2;
    b->t2 = tn;
    for (int k = 0; k < b->n; ++k) {
      b->v1[k] = b->v2[k];
      b->v2[k] = v[k];
    }
  }
}

float cal_bracket_value(const CalBracket& b, int k, double t) {
  const float a1 = b.v1[k], a2 = b.v2[k];
  if (isinf(b.t2)) return a1;
  if (b.t2 == b.t1) return a2;
  return static_cast<float>(a1 + (a2 - a1) / (b.t2 - b.t1) * (t - b.t1));
}
