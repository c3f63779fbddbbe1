// dual_uv: the mixing ratio of a dual-wavelength UV hygrometer, a 4-byte
// float at byte 20 of its record.
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"

namespace {
const char kVersion[] = "dual_uv 1.0";
}

extern "C" int dual_uv(double*, calib_input in, float* out, int) {
  out[0] = flop_float(in.raw + 20);
  return 0;
}

// No parameters.  Output in gr/kg.
extern "C" CalibInfo* dual_uv_init(int, int, void**, int nparam, int nout) {
  calib_check_nparam("dual_uv", nparam, 0, 0);
  return calib_info(kVersion, nout, {"gr/kg"});
}
