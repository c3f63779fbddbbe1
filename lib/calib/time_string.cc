// The time text of a line-form calibration record, read in the date forms
// that the rest of the system writes, as UTC.
#include <ctype.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "cal_file.h"
#include "cal_parse.h"

namespace {

// Month 1..12 from the first three letters of a name, 0 if none matches.
int month_number(const char* name) {
  static const char* const kNames[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                       "jul", "aug", "sep", "oct", "nov", "dec"};
  char abbrev[4] = {0, 0, 0, 0};
  for (int i = 0; i < 3 && name[i]; ++i) abbrev[i] = static_cast<char>(tolower(static_cast<unsigned char>(name[i])));
  for (int m = 0; m < 12; ++m)
    if (strcmp(abbrev, kNames[m]) == 0) return m + 1;
  return 0;
}

// Full year from a year as written: 0..49 are 2000..2049, 50..99 are
// 1950..1999, years after 1900 stand as they are.
int full_year(int year) {
  if (year > 1900) year -= 1900;
  if (year < 50) year += 100;
  return year + 1900;
}

// hhmmss.fff as seconds into the day.
double hhmmss(double v) { return cal_parse_hhmmss(v); }

}  // namespace

extern "C" double time_string_to_double(const char* text) {
  if (strncmp(text, "now", 3) == 0) return static_cast<double>(time(nullptr));

  int year = 70, mon = 1, day = 1, yday = 1, hour = 0, minute = 0;
  float fsec = 0.0f;
  double num = 0.0;
  char mname[13] = "";
  // Seconds since 1970 of a calendar day, month 1..12 (0 is the December
  // before, as a calendar normalises it).
  auto date = [](int y, int m, int d) { return cal_parse_date(full_year(y), m - 1, d); };
  auto yday_date = [](int y, int yd) { return cal_parse_yday(full_year(y), yd); };

  if (sscanf(text, "%d %12[A-Za-z] %d %d:%d:%f", &year, mname, &day, &hour, &minute, &fsec) == 6)
    return date(year, month_number(mname), day) + hour * 3600.0 + minute * 60.0 + fsec;
  if (sscanf(text, "%d %12[A-Za-z] %d %d:%d", &year, mname, &day, &hour, &minute) == 5)
    return date(year, month_number(mname), day) + hour * 3600.0 + minute * 60.0;
  if (sscanf(text, "%d %12[A-Za-z] %d %lf", &year, mname, &day, &num) == 4)
    return date(year, month_number(mname), day) + hhmmss(num);
  if (sscanf(text, "%d %12[A-Za-z] %d", &year, mname, &day) == 3)
    return date(year, month_number(mname), day);
  if (sscanf(text, "%d %d %d %d:%d:%f", &year, &mon, &day, &hour, &minute, &fsec) == 6)
    return date(year, mon, day) + hour * 3600.0 + minute * 60.0 + fsec;
  if (sscanf(text, "%d %d %d %d:%d", &year, &mon, &day, &hour, &minute) == 5)
    return date(year, mon, day) + hour * 3600.0 + minute * 60.0;
  if (sscanf(text, "%d %d %d %lf", &year, &mon, &day, &num) == 4)
    return date(year, mon, day) + hhmmss(num);
  if (sscanf(text, "%d %d %d:%d:%f", &year, &yday, &hour, &minute, &fsec) == 5)
    return yday_date(year, yday) + hour * 3600.0 + minute * 60.0 + fsec;
  if (sscanf(text, "%d %d %d:%d:", &year, &yday, &hour, &minute) == 4)
    return yday_date(year, yday) + hour * 3600.0 + minute * 60.0;
  if (sscanf(text, "%d %d %d", &year, &mon, &day) == 3) return date(year, mon, day);
  if (sscanf(text, "%d %d", &year, &yday) == 2) return yday_date(year, yday);
  if (sscanf(text, "%lf", &num) == 1) return num;
  return date(70, 1, 1);
}
