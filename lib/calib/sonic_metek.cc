// sonic_metek: the standard ASCII output of a METEK USA-1 sonic,
//   M:x =    10 y =    -3 z =    -1 t =  2203
// through the record sonics' shared steps.  The first character is the
// heating state (M heating off, H on, D on but defective); x, y and z are
// the wind components in cm/s, t the sonic temperature in 0.01 degC.  The
// labels are found wherever they stand.  The USA-1 is left-handed, so by
// default y changes sign to give the right-handed v.
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "calib/decimal.h"
#include "calib/conversions.h"
#include "calib/sonic_common.h"

namespace {
const char kModule[] = "sonic_metek";

struct Use {
  SonicUse sonic;
  bool left;
};
UseTable<Use> uses;

// The number after "<label> =" in text, or 1e37 when the label is absent or
// no number follows it.
float labelled(const char* text, char label) {
  for (const char* p = strchr(text, label); p; p = strchr(p + 1, label)) {
    const char* q = p + 1;
    while (*q == ' ') ++q;
    if (*q != '=') continue;
    char* end;
    const double v = heron::decimal_strtod(q + 1, &end);
    if (end != q + 1 && isfinite(v) && (*end == ' ' || *end == '\0' || *end == '\r' || *end == '\n')) return static_cast<float>(v);
  }
  return CALIB_MISSING;
}

// The diagnostic of the heating state: M 0, H 1, D 2, anything else 3.
float heating(char c) { return c == 'M' ? 0.0f : c == 'H' ? 1.0f : c == 'D' ? 2.0f : 3.0f; }

float scaled(float v, float s) { return v >= CALIB_MISSING_TEST ? CALIB_MISSING : v * s; }
}  // namespace

extern "C" int sonic_metek(double* time, calib_input in, float* out, int ichan) {
  Use& u = uses[ichan];
  const double t = *time;
  if (!sonic_calibrate(&u.sonic, t)) {
    sonic_all_missing(out);
    out[8] = CALIB_MISSING;
    return 0;
  }
  // The record as text, cut at the room's end.
  char text[CALIB_RECORD_ROOM + 1];
  memcpy(text, in.raw, CALIB_RECORD_ROOM);
  text[CALIB_RECORD_ROOM] = '\0';
  float wind[3] = {scaled(labelled(text, 'x'), 0.01f), scaled(labelled(text, 'y'), 0.01f),
                   scaled(labelled(text, 'z'), 0.01f)};
  if (u.left && wind[1] < CALIB_MISSING_TEST) wind[1] = -wind[1];
  sonic_finish(&u.sonic, t, wind, scaled(labelled(text, 't'), 0.01f), SonicSound::Temperature, out);
  out[8] = heating(text[0]);
  return 0;
}

// Parameters: calibration file [text], predictor time constant and threshold
// [numbers], "despike" or another word [text, optional], handedness [text,
// "left" (the default) or "right"].
extern "C" CalibInfo* sonic_metek_init(int ichan, int nchan, void** params, int nparam, int nout) {
  const SonicParams p = sonic_params(kModule, params, nparam, 5);
  const char* hand = nparam == 5 ? calib_param_string(params, 4) : "left";
  if (strcmp(hand, "left") != 0 && strcmp(hand, "right") != 0)
    calib_init_fail(kModule, "Handedness \"%s\" is neither \"right\" nor \"left\"\n", hand);
  CalibInfo* info = sonic_info("sonic_metek 1.0", nout, p);
  if (nchan == 0) return info;
  if (nout != SONIC_OUTPUTS)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, SONIC_OUTPUTS);
  Use& u = uses.prepare(kModule, ichan, nchan);
  sonic_start(&u.sonic, kModule, params, nparam, SONIC_CAL_VALUES, p);
  u.left = hand[0] == 'l';
  return info;
}
