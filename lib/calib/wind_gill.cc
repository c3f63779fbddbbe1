// wind_gill: a two-axis sonic wind sensor's record of speed (hundredths of
// m/s, 2-byte signed at byte 0), direction (degrees, 2-byte signed at byte 4)
// and status (byte 6).  The sensor's north mark may be turned from true
// north by an offset, taken per use from a loaded calibration file.
#include <math.h>

#include "calib/cal_use.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"

namespace {
const char kVersion[] = "wind_gill 1.0";
constexpr double kDegToRad = 0.017453292519943295;
struct Use {
  CalFile cal;
  cal_select sel;
  double offset;
  int nout;  // 2, or 4 with the direction and speed outputs
};
UseTable<Use> uses;
}  // namespace

extern "C" int wind_gill(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  if (cal_select_update(&u.sel, *time)) u.offset = u.sel.in_force[0];
  const short speed = flop_short(in.raw);
  const short dir = flop_short(in.raw + 4);
  const unsigned char status = static_cast<unsigned char>(in.raw[6]);
  if (status != 0 || dir < -9999 || !u.sel.in_force) {
    for (int i = 0; i < u.nout; ++i) out[i] = CALIB_MISSING;
    return 0;
  }
  const double s = speed / 100.0;
  const double a = (270.0 - dir - u.offset) * kDegToRad;
  out[0] = static_cast<float>(s * cos(a));
  out[1] = static_cast<float>(s * sin(a));
  if (u.nout > 2) {
    out[2] = dir;
    out[3] = static_cast<float>(s);
  }
  return 0;
}

// Parameters: calibration file [text] of records holding the direction
// offset in degrees; optionally a number, nonzero to add the raw direction
// (deg) and the speed (m/s) as outputs 3 and 4.  Outputs: u, v (m/s).
extern "C" CalibInfo* wind_gill_init(int ichan, int nchan, void** params, int nparam, int nout) {
  if (nparam < 1 || nparam > 2)
    calib_init_fail("wind_gill", "Invalid number of parameters (%d), should be 1 or 2\n", nparam);
  const bool extra = nparam == 2 && calib_param_double(params, 1) != 0.0;
  if (nout < (extra ? 4 : 2))
    calib_init_fail("wind_gill", "Invalid number of outputs (%d), should be %d\n", nout, extra ? 4 : 2);
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  if (extra)
    CalibInfoSetUnits(info, 4, "m/s", "m/s", "deg", "m/s");
  else
    CalibInfoSetUnits(info, 2, "m/s", "m/s");
  CalibInfoSetParamString(info, "\"%s\"%s", calib_param_string(params, 0), extra ? " dir" : "");
  if (nchan > 0) {
    Use& u = uses.prepare("wind_gill", ichan, nchan);
    u.cal = calib_load_file("wind_gill", params, nparam, 1);
    cal_select_start(&u.sel, u.cal.get());
    u.nout = extra ? 4 : 2;
  }
  return info;
}
