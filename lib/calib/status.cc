// status: a two-state signal (a heater, a valve, a door switch) wired to an
// analog input; 1 when the voltage is at or above the threshold, else 0.
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
UseTable<float> thresholds;
}

extern "C" int status(double*, calib_input in, float* out, int ichan) {
  out[0] = in.volts >= thresholds[ichan] ? 1.0f : 0.0f;
  return 0;
}

// Parameters: threshold in volts [number, optional, 2.5 by default].
extern "C" CalibInfo* status_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam > 1) calib_init_fail("status", "Invalid number of parameters (%d), should be 0 or 1\n", nparam);
  // Half of a 5 V logic swing when no threshold is given.
  const float threshold = nparam == 1 ? static_cast<float>(calib_param_double(params, 0)) : 2.5f;
  CalibInfo* info = calib_info("status 1.0", nout, {""});
  CalibInfoSetParamString(info, "threshold=%.2fV", threshold);
  if (nchan > 0) thresholds.prepare("status", ichan, nchan) = threshold;
  return info;
}
