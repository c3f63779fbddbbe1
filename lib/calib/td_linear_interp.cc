// td_linear_interp and licor_co2: a linear conversion whose slope and
// intercept drift between calibrations; each is interpolated in time between
// the two records of a line-form calibration file that bracket the sample,
// and extrapolated from the last two once the file is exhausted.  licor_co2
// is the row for a closed-path CO2 analyser's linear output, whose field
// zero and span calibrations make the records; it differs only in its
// default unit.
#include "calib/cal_bracket.h"
#include "calib/conversions.h"
#include "calib/linear_family.h"

namespace {
struct Member {
  const char* module;
  const char* version;
  const char* unit;  // when the parameters give none
};
enum MemberIndex { kTdLinearInterp, kLicorCo2, kMembers };
const Member kFamily[kMembers] = {
    {"td_linear_interp", "td_linear_interp 1.0", ""},
    {"licor_co2", "licor_co2 1.0", "umol/mol"},
};
UseTable<CalBracket> uses[kMembers];  // records of slope, intercept

int convert(MemberIndex i, double t, float volts, float* out, int ichan) {
  CalBracket& b = uses[i][ichan];
  cal_bracket_update(&b, t);
  if (t < b.t1) {
    out[0] = CALIB_MISSING;  // before the first calibration
    return 0;
  }
  Line line;
  line.slope = cal_bracket_value(b, 0, t);
  line.intcpt = cal_bracket_value(b, 1, t);
  out[0] = line.at(volts);
  return 0;
}

// Parameters: line-form calibration file [text] of records "time slope
// intercept", unit [text, optional].
CalibInfo* init(MemberIndex i, int ichan, int nchan, void** params, int nparam, int nout) {
  const Member& m = kFamily[i];
  CalibInfo* info = file_line_info(m.module, m.version, params, nparam, nout, m.unit);
  if (nchan > 0) cal_bracket_open(&uses[i].prepare(m.module, ichan, nchan), m.module, calib_param_string(params, 0), 2);
  return info;
}
}  // namespace

#define INTERP_MEMBER(name, index)                                                            \
  extern "C" int name(double* time, calib_input in, float* out, int ichan) {                 \
    return convert(index, *time, in.volts, out, ichan);                                        \
  }                                                                                            \
  extern "C" CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout) { \
    return init(index, ichan, nchan, params, nparam, nout);                                    \
  }

INTERP_MEMBER(td_linear_interp, kTdLinearInterp)
INTERP_MEMBER(licor_co2, kLicorCo2)
