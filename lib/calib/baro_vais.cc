// baro_vais: a barometer record of two 4-byte floats, the instrument's
// temperature and the pressure.
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"

namespace {
const char kVersion[] = "baro_vais 1.0";
UseTable<int> nouts;
}  // namespace

extern "C" int baro_vais(double*, calib_input in, float* out, int ichan) {
  out[0] = flop_float(in.raw);
  if (nouts[ichan] > 1) out[1] = flop_float(in.raw + 4);
  return 0;
}

// No parameters.  Outputs: temperature in degC, pressure in mb.
extern "C" CalibInfo* baro_vais_init(int ichan, int nchan, void**, int nparam, int nout) {
  calib_check_nparam("baro_vais", nparam, 0, 0);
  CalibInfo* info = calib_info(kVersion, nout, {"degC", "mb"});
  if (nchan > 0) nouts.prepare("baro_vais", ichan, nchan) = nout;
  return info;
}
