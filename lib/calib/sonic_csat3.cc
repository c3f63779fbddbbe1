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

#include "calib/adapt_forecast.h"
#include "calib/cal_use.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/flop_convert.h"
#include "calib/sonic_tilt.h"

namespace {
const char kVersion[] = "sonic_csat3 1.0";
const char kModule[] = "sonic_csat3";

constexpr int kRecordBytes = 10;
constexpr int kOutputs = 9;
constexpr int kCalValues = 7;
// Scale of the u, v and w counts in m/s by range code.
constexpr float kRangeScale[4] = {0.002f, 0.001f, 0.0005f, 0.00025f};
// A predictor whose last good value is this old starts again.
constexpr double kStaleSeconds = 300.0;
// Resolution floor of the spike test: a few counts of the coarsest range.
constexpr double kMinSd = 0.01;
constexpr double kPi = 3.141592653589793;
constexpr double kDegToRad = 0.017453292519943295;

struct Use {
  CalFile cal;
  cal_select sel;
  float offset[3];
  float tilt[9];
  bool level;  // lean negligible: the tilt matrix is not applied
  float sin_orient, cos_orient;
  bool orient;  // orientation angle nonzero
  int shift;    // realignment k, bytes
  char prev_raw[kRecordBytes];
  int prev_counter;
  bool proto;
  adapt_state screen[4];  // u, v, w, c
};
UseTable<Use> uses;

void take_record(Use& u) {
  const double* r = u.sel.in_force;
  for (int i = 0; i < 3; ++i) u.offset[i] = static_cast<float>(r[i]);
  u.level = sonic_tilt_matrix(r[3] * kPi / 180.0, r[4] * kPi / 180.0, u.tilt) != 0;
  const double orient = r[5] * kDegToRad;
  u.sin_orient = static_cast<float>(sin(orient));
  u.cos_orient = static_cast<float>(cos(orient));
  u.orient = orient != 0.0;
  u.shift = static_cast<int>(r[6]);
}

inline bool missing(float v) { return !(fabsf(v) < CALIB_MISSING_TEST); }

}  // namespace

extern "C" int sonic_csat3(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  const double t = *time;
  if (cal_select_update(&u.sel, t)) take_record(u);
  if (!u.sel.in_force) {
    // No calibration yet: nothing trustworthy to report.
    for (int i = 0; i < kOutputs; ++i) out[i] = CALIB_MISSING;
    return 0;
  }

  // A record that the acquisition split across two samples is put back
  // together from the end of the previous one.  The raw bytes are kept even
  // without a shift, so that a later calibration record with one finds the
  // sample before it.
  char rec[kRecordBytes];
  const char* raw = in.raw;
  if (u.shift > 0) {
    const int k = u.shift;
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
  float c = ccount == -32768 ? CALIB_MISSING : ccount * 0.001f + 340.0f;

  if (u.proto) {
    const float uu = wind[0];
    wind[0] = missing(wind[1]) ? CALIB_MISSING : -wind[1];
    wind[1] = uu;
  }

  for (int i = 0; i < 4; ++i) {
    adapt_state& s = u.screen[i];
    if (t - s.last_good_time >= kStaleSeconds) adapt_forecast_reset(&s);
  }
  for (int i = 0; i < 3; ++i) {
    wind[i] = adapt_forecast(wind[i], t, &u.screen[i]);
    out[4 + i] = static_cast<float>(u.screen[i].spike);
  }
  c = adapt_forecast(c, t, &u.screen[3]);
  out[7] = static_cast<float>(u.screen[3].spike);

  bool any_missing = false;
  for (int i = 0; i < 3; ++i) {
    if (missing(wind[i]))
      any_missing = true;
    else
      wind[i] -= u.offset[i];
  }
  const bool horiz_missing = missing(wind[0]) || missing(wind[1]);

  if (u.level) {
    out[0] = wind[0];
    out[1] = wind[1];
    out[2] = wind[2];
  } else if (any_missing) {
    out[0] = out[1] = out[2] = CALIB_MISSING;
  } else {
    const float* m = u.tilt;
    for (int i = 0; i < 3; ++i) out[i] = m[3 * i] * wind[0] + m[3 * i + 1] * wind[1] + m[3 * i + 2] * wind[2];
  }

  if (u.orient) {
    if (horiz_missing) {
      out[0] = out[1] = CALIB_MISSING;
    } else {
      const float x = out[0], y = out[1];
      out[0] = x * u.cos_orient + y * u.sin_orient;
      out[1] = -x * u.sin_orient + y * u.cos_orient;
    }
  }

  if (missing(c)) {
    out[3] = CALIB_MISSING;
  } else {
    const double q = c / 20.067;
    out[3] = static_cast<float>(q * q - 273.15);
  }

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
  if (nparam < 3 || nparam > 5)
    calib_init_fail(kModule, "Invalid number of parameters (%d), should be 3 to 5\n", nparam);
  const char* name = calib_param_string(params, 0);
  const double tau = calib_param_double(params, 1);
  const double k = calib_param_double(params, 2);
  if (!(tau >= 1.0) || !(k > 0.0))
    calib_init_fail(kModule, "Spike time constant (%g) must be at least 1 and threshold (%g) positive\n",
                    tau, k);
  const bool despike = nparam < 4 || strcmp(calib_param_string(params, 3), "despike") == 0;
  const bool proto = nparam == 5 && strncmp(calib_param_string(params, 4), "proto", 5) == 0;

  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  CalibInfoSetUnits(info, 9, "m/s", "m/s", "m/s", "degC", "", "", "", "", "");
  CalibInfoSetParamString(info, "\"%s\" %2.g %.2f %s", name, tau, k, despike ? "despike" : "flag");
  if (nchan == 0) return info;

  if (nout != kOutputs)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, kOutputs);
  Use& u = uses.prepare(kModule, ichan, nchan);
  u.cal = calib_load_file(kModule, params, nparam, kCalValues);
  for (int i = 0; i < u.cal->nrecords; ++i) {
    const double shift = u.cal->data[i][6];
    if (!(shift >= 0 && shift < kRecordBytes) || shift != floor(shift))
      calib_init_fail(kModule, "Record shift %g in %s is not a whole number from 0 to %d\n", shift, name,
                      kRecordBytes - 1);
  }
  cal_select_start(&u.sel, u.cal.get());
  u.proto = proto;
  for (adapt_state& s : u.screen) adapt_forecast_init(&s, tau, k, kMinSd, despike ? 1 : 0);
  return info;
}
