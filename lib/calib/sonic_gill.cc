// sonic_gill and sonic_gill_transit: the binary result message of a Gill
// research sonic (calib/gill_record.h) through the record sonics' shared
// steps.  sonic_gill takes the message's components as u, v and w;
// sonic_gill_transit takes them as the speeds along the instrument's three
// acoustic axes and turns them into u, v and w by a 3 x 3 matrix that its
// calibration records carry after the common six values.  Both are rows of
// the table below.
#include "calib/conversions.h"
#include "calib/gill_record.h"
#include "calib/sonic_common.h"

namespace {

struct Member {
  const char* module;
  const char* version;
  bool transit;  // axis speeds, turned by the calibration record's matrix
};
enum MemberIndex { kGill, kTransit, kMembers };
const Member kFamily[kMembers] = {
    {"sonic_gill", "sonic_gill 1.0", false},
    {"sonic_gill_transit", "sonic_gill_transit 1.0", true},
};
constexpr int kMatrixValues = 9;
// The diagnostic of a record whose start bytes or checksum are wrong: above
// any status word.
constexpr float kBadRecord = 65536.0f;

struct Use {
  SonicUse sonic;
  GillLayout layout;
};
UseTable<Use> uses[kMembers];

int convert(MemberIndex i, double* time, const char* raw, float* out, int ichan) {
  Use& u = uses[i][ichan];
  const double t = *time;
  const double* cal = sonic_calibrate(&u.sonic, t);
  if (!cal) {
    sonic_all_missing(out);
    out[8] = CALIB_MISSING;
    return 0;
  }
  GillRecord g;
  float wind[3] = {CALIB_MISSING, CALIB_MISSING, CALIB_MISSING};
  float sound = CALIB_MISSING;
  SonicSound kind = SonicSound::Speed;
  const bool good = gill_decode(u.layout, reinterpret_cast<const unsigned char*>(raw), &g);
  if (good) {
    const double* m = cal + SONIC_CAL_VALUES;
    for (int r = 0; r < 3; ++r)
      wind[r] = kFamily[i].transit
                    ? static_cast<float>(m[3 * r] * g.wind[0] + m[3 * r + 1] * g.wind[1] + m[3 * r + 2] * g.wind[2])
                    : g.wind[r];
    if (u.layout.left) wind[1] = -wind[1];
    // Without a speed of sound (0: not in the message) the temperature field stands in.
    if (g.c > 0) {
      sound = g.c;
    } else {
      sound = g.t;
      kind = SonicSound::Temperature;
    }
  }
  sonic_finish(&u.sonic, t, wind, sound, kind, out);
  out[8] = good ? static_cast<float>(g.status) : kBadRecord;
  return 0;
}

// Parameters: calibration file [text], predictor time constant and threshold
// [numbers], "despike" or another word [text, optional], then optionally the
// message layout: start bytes present [number, 0 or 1], temperature field
// [text, "K", "C" or "none"], handedness [text, "right" or "left"],
// analogue inputs [number].
CalibInfo* init(MemberIndex i, int ichan, int nchan, void** params, int nparam, int nout) {
  const Member& m = kFamily[i];
  const SonicParams p = sonic_params(m.module, params, nparam, 8);
  const GillLayout l = gill_layout(m.module, params, nparam, 4, 5, 6, 7);
  CalibInfo* info = sonic_info(m.version, nout, p);
  if (nchan == 0) return info;
  if (nout != SONIC_OUTPUTS)
    calib_init_fail(m.module, "Invalid number of outputs (%d), should be %d\n", nout, SONIC_OUTPUTS);
  Use& u = uses[i].prepare(m.module, ichan, nchan);
  sonic_start(&u.sonic, m.module, params, nparam, SONIC_CAL_VALUES + (m.transit ? kMatrixValues : 0), p);
  u.layout = l;
  return info;
}

}  // namespace

#define GILL_MEMBER(name, index)                                                              \
  extern "C" int name(double* time, calib_input in, float* out, int ichan) {                 \
    return convert(index, time, in.raw, out, ichan);                                           \
  }                                                                                            \
  extern "C" CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout) { \
    return init(index, ichan, nchan, params, nparam, nout);                                    \
  }

GILL_MEMBER(sonic_gill, kGill)
GILL_MEMBER(sonic_gill_transit, kTransit)
