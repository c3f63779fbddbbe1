// baro_PARA: a barometer record of one 4-byte float in units of 10 mb;
// published as the station pressure.
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"

namespace {
const char kVersion[] = "baro_PARA 1.0";
}

extern "C" int baro_PARA(double*, calib_input in, float* out, int) {
  out[0] = flop_float(in.raw) * 10.0f;
  sharedValues[SHARED_PRESSURE] = out[0];
  return 0;
}

// No parameters.  Output in mb.
extern "C" CalibInfo* baro_PARA_init(int, int, void**, int nparam, int nout) {
  calib_check_nparam("baro_PARA", nparam, 0, 0);
  return calib_info(kVersion, nout, {"mb"});
}
