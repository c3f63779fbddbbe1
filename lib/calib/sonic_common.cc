#include "calib/sonic_common.h"

#include <math.h>
#include <string.h>

#include "calib/sonic_tilt.h"

namespace {
// A predictor whose last good value is this old starts again.
constexpr double kStaleSeconds = 300.0;
// Resolution floor of the spike test: a few counts of the coarsest range.
constexpr double kMinSd = 0.01;
constexpr double kPi = 3.141592653589793;
constexpr double kDegToRad = 0.017453292519943295;

inline bool missing(float v) { return !(fabsf(v) < CALIB_MISSING_TEST); }

void take_record(SonicUse* u, const double* r) {
  for (int i = 0; i < 3; ++i) u->offset[i] = static_cast<float>(r[i]);
  u->level = sonic_tilt_matrix(r[3] * kPi / 180.0, r[4] * kPi / 180.0, u->tilt) != 0;
  const double orient = r[5] * kDegToRad;
  u->sin_orient = static_cast<float>(sin(orient));
  u->cos_orient = static_cast<float>(cos(orient));
  u->orient = orient != 0.0;
}
}  // namespace

SonicParams sonic_params(const char* module, void** params, int nparam, int max_nparam) {
  if (nparam < 3 || nparam > max_nparam)
    calib_init_fail(module, "Invalid number of parameters (%d), should be 3 to %d\n", nparam, max_nparam);
  SonicParams p{calib_param_string(params, 0), calib_param_double(params, 1), calib_param_double(params, 2), true};
  if (!(p.tau >= 1.0) || !(p.k > 0.0))
    calib_init_fail(module, "Spike time constant (%g) must be at least 1 and threshold (%g) positive\n", p.tau, p.k);
  p.despike = nparam < 4 || strcmp(calib_param_string(params, 3), "despike") == 0;
  return p;
}

CalibInfo* sonic_info(const char* version, int nout, const SonicParams& p) {
  CalibInfo* info = AllocCalibInfo(nout, version);
  CalibInfoSetUnits(info, SONIC_OUTPUTS, "m/s", "m/s", "m/s", "degC", "", "", "", "", "");
  CalibInfoSetParamString(info, "\"%s\" %2.g %.2f %s", p.file, p.tau, p.k, p.despike ? "despike" : "flag");
  return info;
}

void sonic_start(SonicUse* u, const char* module, void** params, int nparam, int ncal, const SonicParams& p) {
  u->cal = calib_load_file(module, params, nparam, ncal);
  cal_select_start(&u->sel, u->cal.get());
  for (adapt_state& s : u->screen) adapt_forecast_init(&s, p.tau, p.k, kMinSd, p.despike ? 1 : 0);
}

const double* sonic_calibrate(SonicUse* u, double t) {
  if (cal_select_update(&u->sel, t)) take_record(u, u->sel.in_force);
  return u->sel.in_force;
}

void sonic_all_missing(float* out) {
  for (int i = 0; i < SONIC_OUTPUTS - 1; ++i) out[i] = CALIB_MISSING;
}

float sonic_temperature(float c) {
  const double q = c / 20.067;
  return static_cast<float>(q * q - 273.15);
}

void sonic_finish(SonicUse* u, double t, float wind[3], float sound, SonicSound kind, float* out) {
  for (adapt_state& s : u->screen)
    if (t - s.last_good_time >= kStaleSeconds) adapt_forecast_reset(&s);
  for (int i = 0; i < 3; ++i) {
    wind[i] = adapt_forecast(wind[i], t, &u->screen[i]);
    out[4 + i] = static_cast<float>(u->screen[i].spike);
  }
  sound = adapt_forecast(sound, t, &u->screen[3]);
  out[7] = static_cast<float>(u->screen[3].spike);

  bool any_missing = false;
  for (int i = 0; i < 3; ++i) {
    if (missing(wind[i]))
      any_missing = true;
    else
      wind[i] -= u->offset[i];
  }
  const bool horiz_missing = missing(wind[0]) || missing(wind[1]);

  if (u->level) {
    for (int i = 0; i < 3; ++i) out[i] = wind[i];
  } else if (any_missing) {
    out[0] = out[1] = out[2] = CALIB_MISSING;
  } else {
    const float* m = u->tilt;
    for (int i = 0; i < 3; ++i) out[i] = m[3 * i] * wind[0] + m[3 * i + 1] * wind[1] + m[3 * i + 2] * wind[2];
  }

  if (u->orient) {
    if (horiz_missing) {
      out[0] = out[1] = CALIB_MISSING;
    } else {
      const float x = out[0], y = out[1];
      out[0] = x * u->cos_orient + y * u->sin_orient;
      out[1] = -x * u->sin_orient + y * u->cos_orient;
    }
  }

  if (missing(sound))
    out[3] = CALIB_MISSING;
  else
    out[3] = kind == SonicSound::Speed ? sonic_temperature(sound) : sound;
}
