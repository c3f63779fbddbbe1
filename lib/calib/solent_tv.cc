// solent_tv: the sonic (virtual) temperature alone from a Gill research
// sonic's binary result message (calib/gill_record.h), for a configuration
// that wants the temperature without the wind: (c / 20.067)^2 - 273.15 from
// the speed of sound c.
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "calib/gill_record.h"
#include "calib/sonic_common.h"

namespace {
const char kModule[] = "solent_tv";
UseTable<GillLayout> uses;
}  // namespace

extern "C" int solent_tv(double*, calib_input in, float* out, int ichan) {
  GillRecord g;
  const bool good = gill_decode(uses[ichan], reinterpret_cast<const unsigned char*>(in.raw), &g);
  out[0] = good && g.c > 0 ? sonic_temperature(g.c) : CALIB_MISSING;
  return 0;
}

// Parameters, all optional: start bytes present [number, 0 or 1, default
// 1], temperature field [text, "K", "C" or "none"], analogue inputs
// [number]; they locate the checksum.  Output in degC.
extern "C" CalibInfo* solent_tv_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam(kModule, nparam, 0, 3);
  const GillLayout l = gill_layout(kModule, params, nparam, 0, 1, -1, 2);
  CalibInfo* info = calib_info("solent_tv 1.0", nout, {"degC"});
  CalibInfoSetParamString(info, "header=%d, T=%s, analog=%d", l.header ? 1 : 0, gill_temp_name(l.temp), l.analog);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = l;
  return info;
}
