// diff_float: differences of pairs of 4-byte floats of a record, such as the
// two levels of a gradient system.
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <vector>

#include "base/logit.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"
#include "base/fatal.h"

namespace {
const char kVersion[] = "diff_float 1.0";
// A record holds at most 255 bytes, so float 62 (bytes 248-251) is the last.
constexpr int kMaxIndex = 62;
struct Use {
  std::vector<int> pairs;  // k0, j0, k1, j1, ... limited to the outputs
};
UseTable<Use> uses;
}  // namespace

extern "C" int diff_float(double*, calib_input in, float* out, int ichan) {
  const std::vector<int>& p = uses[ichan].pairs;
  for (size_t i = 0; i + 1 < p.size(); i += 2)
    out[i / 2] = flop_float(in.raw + 4 * p[i]) - flop_float(in.raw + 4 * p[i + 1]);
  return 0;
}

// Parameters: pairs of float indices k, j [numbers]; output i is float k
// minus float j of pair i.
extern "C" CalibInfo* diff_float_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam <= 0 || nparam % 2 != 0) {
    logit(LOG_ERR, "Wrong number of parameters for diff cal function");
    exit_status_1();
  }
  std::vector<int> pairs;
  for (int i = 0; i < nparam; ++i) {
    const double v = calib_param_double(params, i);
    if (!(v >= 0 && v <= kMaxIndex) || v != floor(v))
      calib_init_fail("diff_float", "Float index %g is not a whole number from 0 to %d\n", v, kMaxIndex);
    if (i < 2 * nout) pairs.push_back(static_cast<int>(v));
  }
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  for (int i = 0; i < nparam / 2; ++i) CalibInfoAppendUnits(info, "");
  if (nchan > 0) uses.prepare("diff_float", ichan, nchan).pairs = std::move(pairs);
  return info;
}
