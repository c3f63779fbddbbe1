// gps: position and fix from a GPS receiver's NMEA 0183 sentence, GGA by
// default or RMC.  Outputs: latitude (deg, north positive), longitude (deg,
// east positive), altitude above mean sea level (m), fix quality, satellites
// in use, horizontal dilution of precision.  RMC carries no altitude,
// satellites or dilution (1e37) and gives quality 1 for a valid fix, 0 for
// a warning.  Without a fix the position is 1e37 and the counts are kept.
#include <string.h>

#include "calib/conversions.h"
#include "calib/nmea.h"

namespace {
const char kModule[] = "gps";
constexpr int kOutputs = 6;
struct Use {
  bool rmc;  // else GGA (gps) or ZDA (gps_date)
};
UseTable<Use> uses;

void gga(const NmeaSentence& s, float* v) {
  // $--GGA,time,lat,N,lon,E,quality,satellites,hdop,altitude,M,...
  const double q = nmea_number(s, 6);
  const bool fix = q < CALIB_MISSING_TEST && q > 0;
  v[0] = fix ? static_cast<float>(nmea_degrees(s, 2)) : CALIB_MISSING;
  v[1] = fix ? static_cast<float>(nmea_degrees(s, 4)) : CALIB_MISSING;
  v[2] = fix ? static_cast<float>(nmea_number(s, 9)) : CALIB_MISSING;
  v[3] = static_cast<float>(q);
  v[4] = static_cast<float>(nmea_number(s, 7));
  v[5] = static_cast<float>(nmea_number(s, 8));
}

void rmc(const NmeaSentence& s, float* v) {
  // $--RMC,time,status,lat,N,lon,E,speed,course,date,...
  const bool fix = s.nfields > 2 && strcmp(s.field[2], "A") == 0;
  v[0] = fix ? static_cast<float>(nmea_degrees(s, 3)) : CALIB_MISSING;
  v[1] = fix ? static_cast<float>(nmea_degrees(s, 5)) : CALIB_MISSING;
  v[2] = v[4] = v[5] = CALIB_MISSING;
  v[3] = fix ? 1.0f : 0.0f;
}
}  // namespace

extern "C" int gps(double*, calib_input in, float* out, int ichan) {
  const bool use_rmc = uses[ichan].rmc;
  float v[kOutputs];
  NmeaSentence s;
  if (!nmea_parse(in.raw, use_rmc ? "RMC" : "GGA", &s))
    for (float& x : v) x = CALIB_MISSING;
  else if (use_rmc)
    rmc(s, v);
  else
    gga(s, v);
  memcpy(out, v, sizeof v);
  return 0;
}

// Parameters: the sentence [text, optional, "GGA" or "RMC", default "GGA"].
extern "C" CalibInfo* gps_init(int ichan, int nchan, void** params, int nparam, int nout) {
  const char* sentence = nmea_sentence_param(kModule, params, nparam, "GGA");
  if (nchan > 0 && nout != kOutputs)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, kOutputs);
  CalibInfo* info = calib_info("gps 1.0", nout, {"deg", "deg", "m", "", "", ""});
  CalibInfoSetParamString(info, "%s", sentence);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = Use{sentence[0] == 'R'};
  return info;
}
