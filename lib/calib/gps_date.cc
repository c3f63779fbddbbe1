// gps_date: the UTC date and time of a GPS receiver's NMEA 0183 ZDA (the
// default) or RMC sentence, and how far the sample's clock is from it.
// Outputs: year, month, day, UTC seconds of the day (s), and the GPS time
// less the sample time (s).  Dates and times go out separately because a
// float cannot hold a date or seconds since 1970.  The sample time is not
// changed: a bad sentence must not move the sample clock.
#include <math.h>
#include <string.h>

#include "calib/conversions.h"
#include "calib/nmea.h"

namespace {
const char kModule[] = "gps_date";
constexpr int kOutputs = 5;
struct Use {
  bool rmc;  // else GGA (gps) or ZDA (gps_date)
};
UseTable<Use> uses;

// Year, month, day and seconds of the day, or false.
bool date_of(const NmeaSentence& s, bool rmc, double v[4]) {
  v[3] = nmea_seconds_of_day(s, 1);
  if (rmc) {
    // $--RMC,time,status,...,ddmmyy (field 9); a warning status is no time.
    const double d = nmea_number(s, 9);
    if (s.nfields < 10 || strcmp(s.field[2], "A") != 0 || d >= CALIB_MISSING_TEST || strlen(s.field[9]) != 6)
      return false;
    const long dmy = lround(d), yy = dmy % 100;
    v[0] = yy < 80 ? 2000 + yy : 1900 + yy;
    v[1] = dmy / 100 % 100;
    v[2] = dmy / 10000;
  } else {
    // $--ZDA,time,day,month,year,zone hours,zone minutes
    v[2] = nmea_number(s, 2);
    v[1] = nmea_number(s, 3);
    v[0] = nmea_number(s, 4);
  }
  return v[3] < CALIB_MISSING_TEST && v[0] >= 1970 && v[0] < 3000 && v[1] >= 1 && v[1] <= 12 && v[2] >= 1 &&
         v[2] <= 31 && v[0] == floor(v[0]) && v[1] == floor(v[1]) && v[2] == floor(v[2]);
}
}  // namespace

extern "C" int gps_date(double* time, calib_input in, float* out, int ichan) {
  const bool rmc = uses[ichan].rmc;
  NmeaSentence s;
  double v[4];
  if (!nmea_parse(in.raw, rmc ? "RMC" : "ZDA", &s) || !date_of(s, rmc, v)) {
    for (int i = 0; i < kOutputs; ++i) out[i] = CALIB_MISSING;
    return 0;
  }
  for (int i = 0; i < 4; ++i) out[i] = static_cast<float>(v[i]);
  const int64_t day =
      calib_days_from_civil(static_cast<int64_t>(v[0]), static_cast<int64_t>(v[1]), static_cast<int64_t>(v[2]));
  const double gps_time = static_cast<double>(day) * 86400.0 + v[3];
  out[4] = static_cast<float>(gps_time - *time);
  return 0;
}

// Parameters: the sentence [text, optional, "ZDA" or "RMC", default "ZDA"].
extern "C" CalibInfo* gps_date_init(int ichan, int nchan, void** params, int nparam, int nout) {
  const char* sentence = nmea_sentence_param(kModule, params, nparam, "ZDA");
  if (nchan > 0 && nout != kOutputs)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, kOutputs);
  CalibInfo* info = calib_info("gps_date 1.0", nout, {"", "", "", "s", "s"});
  CalibInfoSetParamString(info, "%s", sentence);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = Use{sentence[0] == 'R'};
  return info;
}
