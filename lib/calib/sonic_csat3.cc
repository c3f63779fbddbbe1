// sonic_csat3: the 10-byte binary record of a three-axis sonic anemometer:
// u, v and w counts, a speed-of-sound count and a diagnostic word, as five
// 2-byte signed words in host order.  The conversion decodes the record with
// the range scale of each axis, screens each variable for spikes, removes
// the axis offsets, levels the wind by the instrument's lean, turns it to
// the site's orientation and derives the sonic temperature.  Offsets, lean,
// orientation and a byte shift that realigns a record split across two
// samples come from a loaded calibration file, by sample time.
#include <math.h>
#include <string.h>

#include "base/flop_convert.h"
#include "calib/conversions.h"
#include "calib/sonic_common.h"

namespace {
const char kVersion[] = "sonic_csat3 1.0";
const char kModule[] = "sonic_csat3";

constexpr int kRecordBytes = 10;
// The calibration record's own value after the common six: the shift.
constexpr int kShift = SONIC_CAL_VALUES;
// Scale of the u, v and w counts in m/s by range code.
constexpr float kRangeScale[4] = {0.002f, 0.001f, 0.0005f, 0.00025f};

struct Use {
  SonicUse sonic;
  char prev_raw[kRecordBytes];
  int prev_counter;
  bool proto;
};
UseTable<Use> uses;

inline bool missing(float v) { return !(fabsf(v) < CALIB_MISSING_TEST); }

}  // namespace

extern "C" int sonic_csat3(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  const double t = *time;
  const double* cal = sonic_calibrate(&u.sonic, t);
  if (!cal) {
    // No calibration yet: nothing trustworthy to report.
    sonic_all_missing(out);
    out[8] = CALIB_MISSING;
    return 0;
  }

  // A record that the acquisition split across two samples is put back
  // together from the end of the previous one.  The raw bytes are kept even
  // without a shift, so that a later calibration record with one finds the
  // sample before it.
  char rec[kRecordBytes];
  const char* raw = in.raw;
  const int k = static_cast<int>(cal[kShift]);
  if (k > 0) {
    memcpy(rec, u.prev_raw + kRecordBytes - k, static_cast<size_t>(k));
    memcpy(rec + k, raw, static_cast<size_t>(kRecordBytes - k));
    raw = rec;
  }
  memcpy(u.prev_raw, in.raw, kRecordBytes);

  const int diag = static_cast<unsigned short>(noflop_short(raw + 8));
  float wind[3];
  for (int i = 0; i < 3; ++i) {
    const int count = noflop_short(raw + 2 * i);
    const int range = (diag >> (10 - 2 * i)) & 3;
    wind[i] = (range == 0 && (count == 0 || count == -32768)) ? CALIB_MISSING : count * kRangeScale[range];
  }
  const int ccount = noflop_short(raw + 6);
  const float c = ccount == -32768 ? CALIB_MISSING : ccount * 0.001f + 340.0f;

  if (u.proto) {
    const float uu = wind[0];
    wind[0] = missing(wind[1]) ? CALIB_MISSING : -wind[1];
    wind[1] = uu;
  }
  sonic_finish(&u.sonic, t, wind, c, SonicSound::Speed, out);

  const int counter = diag & 0x3f;
  int flags = (diag >> 12) & 0xf;
  if (u.prev_counter > 0 && (u.prev_counter + 1) % 64 != counter) flags += 16;
  u.prev_counter = counter;
  out[8] = static_cast<float>(flags);
  return 0;
}

// Parameters: calibration file [text] of records "u_off v_off w_off lean
// lean_azimuth orientation shift"; the spike predictor's time constant in
// samples and its threshold k [numbers]; optionally "despike" (the default)
// or another word for flag-only screening; optionally a text beginning with
// "proto" for the prototype's axis layout.
// Outputs: u, v, w (m/s), sonic temperature (degC), spike indicators of u,
// v, w and c, diagnostic value.
extern "C" CalibInfo* sonic_csat3_init(int ichan, int nchan, void** params, int nparam, int nout) {
  const SonicParams p = sonic_params(kModule, params, nparam, 5);
  const bool proto = nparam == 5 && strncmp(calib_param_string(params, 4), "proto", 5) == 0;
  CalibInfo* info = sonic_info(kVersion, nout, p);
  if (nchan == 0) return info;

  if (nout != SONIC_OUTPUTS)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, SONIC_OUTPUTS);
  Use& u = uses.prepare(kModule, ichan, nchan);
  sonic_start(&u.sonic, kModule, params, nparam, kShift + 1, p);
  for (int i = 0; i < u.sonic.cal->nrecords; ++i) {
    const double shift = u.sonic.cal->data[i][kShift];
    if (!(shift >= 0 && shift < kRecordBytes) || shift != floor(shift))
      calib_init_fail(kModule, "Record shift %g in %s is not a whole number from 0 to %d\n", shift, p.file,
                      kRecordBytes - 1);
  }
  u.proto = proto;
  return info;
}
