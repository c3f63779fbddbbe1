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
  if (nparam != 0) calib_init_fail("baro_PARA", "Invalid number of parameters, should be 0\n");
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 1, "mb");
  return info;
}
