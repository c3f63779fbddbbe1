// q_kh2o: water-vapour density from a krypton hygrometer's signal by Beer's
// law.  The signal V falls as vapour absorbs the lamp's light over the path:
// ln V = ln V0 - x kw rho, so rho = (ln V0 - ln V) / (x kw).  The lamp and
// window age, so the coefficients come from a line-form calibration file
// and are interpolated in time between the records that bracket the sample.
// Two more rows take the signal from a record instead of an analog input:
// q_kh2o_serial from a field of an instrument's record (volts after a
// scale), q_kh2o_serializer from the counts of an A/D-to-serial converter.
#include <float.h>
#include <math.h>
#include <string.h>

#include "calib/cal_bracket.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "calib/serial_layout.h"

namespace {
// Record values: path length x (cm), absorption coefficient kw
// (m^3 g^-1 cm^-1), ln of the signal in volts at zero vapour.
enum { kX, kKw, kLnV0, kValues };

struct Use {
  CalBracket b;
  SerialLayout field;   // record rows: where the signal is
  float scale = 1;      // volts per field unit (serial), or per count (serializer)
  float lo = 0, hi = 0; // serializer: the converter's rails, counts
  float gain = 1, offset = 0;
};
enum MemberIndex { kAnalog, kSerial, kSerializer, kMembers };
const char* const kModule[kMembers] = {"q_kh2o", "q_kh2o_serial", "q_kh2o_serializer"};
UseTable<Use> uses[kMembers];

float density(CalBracket& b, double time, double volts) {
  cal_bracket_update(&b, time);
  // Before the first record the first applies, after the last the last.
  const double t = fmin(fmax(time, b.t1), b.t2);
  const double xkw = static_cast<double>(cal_bracket_value(b, kX, t)) * cal_bracket_value(b, kKw, t);
  // A dead or inverted signal has no logarithm, and a zero absorption no
  // density: missing, not a huge or non-finite number.
  const bool law = volts > 0 && xkw != 0 && isfinite(xkw) && isfinite(volts);
  const double rho = law ? (cal_bracket_value(b, kLnV0, t) - log(volts)) / xkw : NAN;
  return fabs(rho) <= FLT_MAX ? static_cast<float>(rho) : CALIB_MISSING;
}

double signal(MemberIndex i, const Use& u, calib_input in) {
  if (i == kAnalog) return in.volts;
  const float x = u.field.field(in.raw, 0);
  if (x >= CALIB_MISSING_TEST) return NAN;
  if (i == kSerial) return x * static_cast<double>(u.scale);
  if (x <= u.lo || x >= u.hi) return NAN;  // at a rail the count is not the signal
  return (x * static_cast<double>(u.scale) - u.offset) / u.gain;
}

// A whole number in lo .. hi, or an init fault naming what it is.
int whole(MemberIndex i, void** params, int k, int lo, int hi, const char* what) {
  const double v = calib_param_double(params, k);
  if (!(v >= lo && v <= hi) || v != floor(v))
    calib_init_fail(kModule[i], "The %s %g is not a whole number from %d to %d\n", what, v, lo, hi);
  return static_cast<int>(v);
}

// The record rows' parameters after the file: byte order, offset, then the
// row's own (see docs/calibration.md).
void record_params(MemberIndex i, Use& u, void** params, int nparam) {
  if (i == kSerial) {
    calib_check_nparam(kModule[i], nparam, 4, 5);
    const char* type = calib_param_string(params, 3);
    const SerialKind kind = strcmp(type, "float") == 0 ? SerialKind::Float
                            : strcmp(type, "short") == 0 ? SerialKind::Short : SerialKind::UShort;
    if (kind == SerialKind::UShort && strcmp(type, "ushort") != 0)
      calib_init_fail(kModule[i], "Field type \"%s\" is none of \"float\", \"short\" and \"ushort\"\n", type);
    u.field = serial_layout(kModule[i], kind, params + 1, 2, 1);
    if (nparam == 5) u.scale = static_cast<float>(calib_param_double(params, 4));
    return;
  }
  calib_check_nparam(kModule[i], nparam, 6, 8);
  const bool is_signed = whole(i, params, 3, 0, 1, "signed switch") == 1;
  const double full = calib_param_double(params, 4);
  const int bits = whole(i, params, 5, 2, 16, "converter's bit count");
  u.field = serial_layout(kModule[i], is_signed ? SerialKind::Short : SerialKind::UShort, params + 1, 2, 1);
  u.scale = static_cast<float>(full / (1 << bits));
  u.lo = is_signed ? -(1 << (bits - 1)) : 0;
  u.hi = is_signed ? (1 << (bits - 1)) - 1 : (1 << bits) - 1;
  if (nparam > 6) u.gain = static_cast<float>(calib_param_double(params, 6));
  if (nparam > 7) u.offset = static_cast<float>(calib_param_double(params, 7));
  if (!(full > 0) || u.gain == 0)
    calib_init_fail(kModule[i], "Full scale %g must be above 0 and gain %g nonzero\n", full, u.gain);
}

// Parameters: line-form calibration file [text] of records "time x kw lnV0",
// then for the record rows the field's place and scaling.  Output in g/m^3.
CalibInfo* init(MemberIndex i, int ichan, int nchan, void** params, int nparam, int nout) {
  Use u;
  if (i == kAnalog)
    calib_check_nparam(kModule[i], nparam, 1, 1);
  else
    record_params(i, u, params, nparam);
  const char* name = calib_param_string(params, 0);
  CalibInfo* info = calib_info(i == kAnalog ? "q_kh2o 1.0" : i == kSerial ? "q_kh2o_serial 1.0" : "q_kh2o_serializer 1.0",
                               nout, {"g/m^3"});
  CalibInfoSetParamString(info, "\"%s\"", name);
  if (nchan > 0) {
    Use& stored = uses[i].prepare(kModule[i], ichan, nchan);
    stored.field = u.field;
    stored.scale = u.scale;
    stored.lo = u.lo;
    stored.hi = u.hi;
    stored.gain = u.gain;
    stored.offset = u.offset;
    cal_bracket_open(&stored.b, kModule[i], name, kValues);
  }
  return info;
}
}  // namespace

#define KH2O_MEMBER(name, index)                                                              \
  extern "C" int name(double* time, calib_input in, float* out, int ichan) {                 \
    Use& u = uses[index][ichan];                                                               \
    out[0] = density(u.b, *time, signal(index, u, in));                                        \
    return 0;                                                                                  \
  }                                                                                            \
  extern "C" CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout) { \
    return init(index, ichan, nchan, params, nparam, nout);                                    \
  }

KH2O_MEMBER(q_kh2o, kAnalog)
KH2O_MEMBER(q_kh2o_serial, kSerial)
KH2O_MEMBER(q_kh2o_serializer, kSerializer)
