// baro_GENERIC: a barometer record of whole millibars and hundredths, two
// 2-byte signed integers in host order; published as the station pressure.
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"

namespace {
const char kVersion[] = "baro_GENERIC 1.0";
}

extern "C" int baro_GENERIC(double*, calib_input in, float* out, int) {
  out[0] = noflop_short(in.raw) + noflop_short(in.raw + 2) / 100.0f;
  sharedValues[SHARED_PRESSURE] = out[0];
  return 0;
}

// No parameters.  Output in mb.
extern "C" CalibInfo* baro_GENERIC_init(int, int, void**, int nparam, int nout) {
  calib_check_nparam("baro_GENERIC", nparam, 0, 0);
  return calib_info(kVersion, nout, {"mb"});
}
