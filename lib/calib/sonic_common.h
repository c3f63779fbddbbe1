// What the record sonics share once a record is decoded into u, v, w, the
// speed of sound (or a temperature) and a diagnostic: the calibration record
// chosen by sample time (offsets of u, v and w, lean, lean azimuth and
// orientation, then values of the sonic's own), spike screening of each
// variable, the offsets, levelling by the lean, turning to the site's
// orientation and the sonic temperature.  Every record sonic has the same
// nine outputs: u, v, w (m/s), sonic temperature (degC), the spike
// indicators of u, v, w and the speed of sound or temperature, and its
// diagnostic value, which the sonic's own code writes.
#ifndef HERON_CALIB_SONIC_COMMON_H
#define HERON_CALIB_SONIC_COMMON_H

#include "calib/adapt_forecast.h"
#include "calib/cal_use.h"
#include "calib/calib_common.h"

enum { SONIC_OUTPUTS = 9, SONIC_CAL_VALUES = 6 };

// What the fourth decoded variable is.
enum class SonicSound { Speed, Temperature };  // m/s, or degC as the sonic gives it

struct SonicUse {
  CalFile cal;
  cal_select sel;
  float offset[3];
  float tilt[9];
  bool level;  // lean negligible: the tilt matrix is not applied
  float sin_orient, cos_orient;
  bool orient;  // orientation angle nonzero
  adapt_state screen[4];  // u, v, w, speed of sound or temperature
};

// The leading parameters every record sonic takes: the calibration file
// [text], the predictor's time constant in samples and its threshold k
// [numbers], optionally "despike" (the default) or another word for
// flag-only screening.
struct SonicParams {
  const char* file;
  double tau, k;
  bool despike;
};

// Reads those parameters; the sonic's own options may follow from parameter
// 4 on, up to max_nparam in all.
SonicParams sonic_params(const char* module, void** params, int nparam, int max_nparam);

// The CalibInfo of a record sonic, with the nine units and the summary
// "\"file\" tau k despike|flag".
CalibInfo* sonic_info(const char* version, int nout, const SonicParams& p);

// Loads the use's calibration file (records of at least ncal values, the
// common six first), starts the record choice and the four predictors.
void sonic_start(SonicUse* u, const char* module, void** params, int nparam, int ncal, const SonicParams& p);

// Takes the calibration record for time t.  Returns the record in force
// (for the sonic's own values past the common six), or null before the
// first record, when the sonic reports every output missing.
const double* sonic_calibrate(SonicUse* u, double t);

// Screens, corrects and levels the decoded wind (m/s, 1e37 for missing) and
// the speed of sound or temperature at time t into out[0 .. 7].
void sonic_finish(SonicUse* u, double t, float wind[3], float sound, SonicSound kind, float* out);

// Every output missing: no calibration record, or a record that failed its
// check.  The diagnostic out[8] is left to the caller.
void sonic_all_missing(float* out);

// Sonic temperature (degC) from the speed of sound c (m/s): (c / 20.067)^2 - 273.15.
float sonic_temperature(float c);

#endif
