#include "time/UTime.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

const double UTime::BIGBANG = -1e37;
char* UTime::_fmt = nullptr;
char* UTime::_TZ = nullptr;

namespace {

const char kDefaultFmt[] = "%a %b %d %H:%M:%S %Z %Y";

const char* const kMonths[12] = {"jan", "feb", "mar", "apr", "may", "jun",
                                 "jul", "aug", "sep", "oct", "nov", "dec"};

// Whole seconds handed to localtime are kept within this many seconds of
// the epoch (about a billion years), so that BIGBANG and other absurd values
// still print, as a date long before (or after) the epoch.
const double kPrintableSecs = 3.0e16;

// Days from 1970-01-01 to y-m-d of the proleptic Gregorian calendar
// (m 1..12, d any: it carries).
long long daysFromCivil(long long y, int m, long long d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const long long yoe = y - era * 400;
  const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5;
  const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468 + (d - 1);
}

// Years from 1900 on are full years; smaller ones count from 1900, with
// 0..49 standing for 2000..2049.  Returns years since 1900.
int yearSince1900(int year) {
  if (year >= 1900) return year - 1900;
  if (year < 50) return year + 100;
  return year;
}

// Seconds since the epoch of the given broken-down fields (tmYear since
// 1900, tmMon 0-based, any field may carry), read as UTC when local is 0 and
// in the process's zone otherwise; secs may hold a fraction.  The arithmetic
// is wide enough for any int fields.  BIGBANG when the fields cannot be
// represented: seconds of a billion or more, or months that carry the year
// beyond what a broken-down time holds.
double fieldsToSecs(int local, long long tmYear, long long tmMon, int mday, int hour, int minute,
                    double secs) {
  if (!(fabs(secs) < 1e9)) return UTime::BIGBANG;  // also rejects NaN
  const double whole = trunc(secs);
  const double frac = secs - whole;
  long long year = tmYear + tmMon / 12;
  int mon = static_cast<int>(tmMon % 12);
  if (mon < 0) {
    mon += 12;
    --year;
  }
  if (year < INT_MIN || year > INT_MAX) return UTime::BIGBANG;

  if (!local) {
    // UTC fields need no zone at all: plain calendar arithmetic, which
    // carries out-of-range fields the same way mktime does.
    const long long days = daysFromCivil(1900 + year, mon + 1, mday);
    const long long t = days * 86400 + static_cast<long long>(hour) * 3600 +
                        static_cast<long long>(minute) * 60 + static_cast<long long>(whole);
    return static_cast<double>(t) + frac;
  }

  struct tm tm;
  memset(&tm, 0, sizeof tm);
  tm.tm_sec = static_cast<int>(whole);
  tm.tm_min = minute;
  tm.tm_hour = hour;
  tm.tm_mday = mday;
  tm.tm_mon = mon;
  tm.tm_year = static_cast<int>(year);
  tm.tm_isdst = -1;
  errno = 0;
  const time_t t = mktime(&tm);
  if (t == static_cast<time_t>(-1) && errno != 0) return UTime::BIGBANG;
  return static_cast<double>(t) + frac;
}

// hhmmss.fff as one number into hour, minute and seconds.  False when the
// number is too large to be a time of day in any sense.
bool splitHhmmss(double v, int* hour, int* minute, double* secs) {
  if (!(fabs(v) < 1e9)) return false;
  const int whole = static_cast<int>(v);
  *hour = whole / 10000;
  double rest = v - *hour * 10000.0;
  *minute = static_cast<int>(rest) / 100;
  rest -= *minute * 100.0;
  *secs = rest;
  return true;
}

// Reads the free-form text; see the header for the forms.  Each form is
// tried on fresh fields, so a form that matches only in part leaves nothing
// behind for the next.
double parseFreeForm(int local, const char* str) {
  if (!str) str = "";
  if (strncmp(str, "now", 3) == 0) return static_cast<double>(time(nullptr));

  int year = 70, mon = 1, day = 1, hour = 0, minute = 0;
  double secs = 0.0;
  int y, m, d, h, mi;
  double s;
  char name[13];

  if (sscanf(str, "%d %12[A-Za-z] %d %d:%d:%lf", &y, name, &d, &h, &mi, &s) == 6) {
    year = y, mon = UTime::month(name), day = d, hour = h, minute = mi, secs = s;
  } else if (sscanf(str, "%d %12[A-Za-z] %d %d:%d", &y, name, &d, &h, &mi) == 5) {
    year = y, mon = UTime::month(name), day = d, hour = h, minute = mi;
  } else if (sscanf(str, "%d %12[A-Za-z] %d %lf", &y, name, &d, &s) == 4) {
    year = y, mon = UTime::month(name), day = d;
    if (!splitHhmmss(s, &hour, &minute, &secs)) return UTime::BIGBANG;
  } else if (sscanf(str, "%d %12[A-Za-z] %d", &y, name, &d) == 3) {
    year = y, mon = UTime::month(name), day = d;
  } else if (sscanf(str, "%d %d %d %d:%d:%lf", &y, &m, &d, &h, &mi, &s) == 6) {
    year = y, mon = m, day = d, hour = h, minute = mi, secs = s;
  } else if (sscanf(str, "%d %d %d %d:%d", &y, &m, &d, &h, &mi) == 5) {
    year = y, mon = m, day = d, hour = h, minute = mi;
  } else if (sscanf(str, "%d %d %d %lf", &y, &m, &d, &s) == 4) {
    year = y, mon = m, day = d;
    if (!splitHhmmss(s, &hour, &minute, &secs)) return UTime::BIGBANG;
  } else if (sscanf(str, "%d %d %d:%d:%lf", &y, &d, &h, &mi, &s) == 5) {
    year = y, day = d, hour = h, minute = mi, secs = s;  // day of year
  } else if (sscanf(str, "%d %d %d:%d:", &y, &d, &h, &mi) == 4) {
    year = y, day = d, hour = h, minute = mi;  // day of year
  } else if (sscanf(str, "%d %d %d", &y, &m, &d) == 3) {
    year = y, mon = m, day = d;
  } else if (sscanf(str, "%d %d", &y, &d) == 2) {
    year = y, day = d;  // day of year
  } else if (sscanf(str, "%lf", &s) == 1) {
    return s;
  }
  // A day of the year is day d of January: the calendar carries it into
  // the right month, and the zone's daylight-saving state of that day.
  return fieldsToSecs(local, yearSince1900(year), mon - 1LL, day, hour, minute, secs);
}

// Copies fmt into out with every "%F" / "%nF" replaced by the fraction of
// the second; sets *carry when rounding reached the next second.
void expandFraction(const char* fmt, double frac, std::string* out, bool* carry) {
  *carry = false;
  out->clear();
  for (const char* p = fmt; *p; ++p) {
    if (p[0] != '%') {
      *out += *p;
      continue;
    }
    if (p[1] == '%') {  // a literal percent sign stays for strftime
      *out += "%%";
      ++p;
      continue;
    }
    int n = -1;
    if (p[1] == 'F') {
      n = 3;
      p += 1;
    } else if (isdigit(static_cast<unsigned char>(p[1])) && p[2] == 'F') {
      n = p[1] - '0';
      p += 2;
    }
    if (n < 0) {
      *out += *p;
      continue;
    }
    int scale = 1;
    for (int i = 0; i < n; ++i) scale *= 10;
    int digits = static_cast<int>(frac * static_cast<double>(scale) + 0.5000001);
    if (digits >= scale) {
      digits = 0;
      *carry = true;
    }
    // ".", then the digits zero-padded to n places
    char buf[11];
    buf[0] = '.';
    for (int i = n; i >= 1; --i, digits /= 10) buf[i] = static_cast<char>('0' + digits % 10);
    out->append(buf, n + 1);
  }
}

// floor(t) limited to what localtime can break down.
time_t printableWhole(double t) {
  double whole = floor(t);
  if (!(whole >= -kPrintableSecs)) whole = -kPrintableSecs;  // NaN too
  if (whole > kPrintableSecs) whole = kPrintableSecs;
  return static_cast<time_t>(whole);
}

}  // namespace

UTime::UTime(int local, int year, int mon, int day, int hour, int minute, float fsec)
    : _utime(fieldsToSecs(local, yearSince1900(year), mon - 1LL, day, hour, minute, fsec)) {}

UTime::UTime(int local, int year, int yday, int hour, int minute, float fsec)
    : _utime(fieldsToSecs(local, yearSince1900(year), 0, yday, hour, minute, fsec)) {}

UTime::UTime(int local, const char* str) : _utime(parseFreeForm(local, str)) {}

UTime::UTime(int local, const char* str, const char* fmt) : _utime(BIGBANG) {
  struct tm tm;
  memset(&tm, 0, sizeof tm);
  tm.tm_mday = 1;
  tm.tm_year = 70;
  if (!str || !fmt || strptime(str, fmt, &tm) == nullptr) return;
  // A day of the year read without month and day: the C library may or may
  // not have spread it into them; if not, day tm_yday + 1 of January carries
  // into the right month.
  if (tm.tm_yday > 0 && tm.tm_mon == 0 && tm.tm_mday == 1) tm.tm_mday = tm.tm_yday + 1;
  _utime = fieldsToSecs(local, tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min,
                        tm.tm_sec);
}

int UTime::Msecs(double t) {
  const double ms = fmod(t + 0.0005, 86400.0) * 1000.0;
  if (!isfinite(ms)) return -1;
  return static_cast<int>(ms);
}

char* UTime::to_charstar(char* string, int slen, const char* f) const {
  if (slen <= 0) return string;
  if (!f) {
    if (!_fmt) setfmt(nullptr);
    f = _fmt ? _fmt : kDefaultFmt;
  }
  time_t whole = printableWhole(_utime);
  double frac = _utime - floor(_utime);
  if (!(frac >= 0.0 && frac < 1.0)) frac = 0.0;

  std::string fmt;
  bool carry = false;
  expandFraction(f, frac, &fmt, &carry);
  if (carry) ++whole;

  // localtime rather than localtime_r: it re-reads TZ, so a zone put in
  // the environment by other means than setTZ is honoured too.
  const struct tm* tm = localtime(&whole);
  if (!tm || strftime(string, slen, fmt.c_str(), tm) == 0) string[0] = '\0';
  return string;
}

std::string UTime::string(const char* f) const {
  char buf[128];
  return to_charstar(buf, sizeof buf, f);
}

void UTime::to_intArray(int* array, int n) const {
  if (n < 1 || n > 11) return;
  const time_t whole = printableWhole(_utime);
  const struct tm* ltm = localtime(&whole);
  if (!ltm) return;
  const struct tm tm = *ltm;
  double frac = _utime - floor(_utime);
  if (!(frac >= 0.0 && frac < 1.0)) frac = 0.0;
  const int fields[11] = {tm.tm_year + 1900,
                          tm.tm_mon + 1,
                          tm.tm_mday,
                          tm.tm_yday + 1,
                          tm.tm_hour,
                          tm.tm_min,
                          tm.tm_sec,
                          static_cast<int>(frac * 1000.0),
                          tm.tm_isdst,
                          static_cast<int>(-tm.tm_gmtoff),
                          tm.tm_wday};
  for (int i = 0; i < n; ++i) array[i] = fields[i];
}

void UTime::setfmt(const char* fmt) {
  char* copy = strdup(fmt ? fmt : kDefaultFmt);
  if (!copy) return;  // out of memory: keep the format in force
  char* old = _fmt;
  _fmt = copy;
  free(old);
}

void UTime::setTZ(const char* tz) {
  const char* want = tz ? tz : "";
  // Compare with what the environment holds now, not with what this class
  // installed last: other code may have changed TZ since.
  const char* cur = getenv("TZ");
  if (cur && strcmp(cur, want) == 0) return;

  const size_t len = strlen(want) + 4;
  char* entry = static_cast<char*>(malloc(len));
  if (!entry) return;  // out of memory: the zone in force stays
  snprintf(entry, len, "TZ=%s", want);
  if (putenv(entry) != 0) {
    free(entry);
    return;
  }
  tzset();
  // The environment now points at the new entry; the old one is free.
  char* old = _TZ;
  _TZ = entry;
  free(old);
}

int UTime::month(char* name) {
  if (!name) return 0;
  int i = 0;
  for (; i < 3 && name[i]; ++i) name[i] = static_cast<char>(tolower(static_cast<unsigned char>(name[i])));
  if (i < 3) return 0;
  for (int m = 0; m < 12; ++m)
    if (strncmp(name, kMonths[m], 3) == 0) return m + 1;
  return 0;
}

std::ostream& operator<<(std::ostream& os, const UTsetfmt& m) {
  UTime::setfmt(m.fmt);
  return os;
}

std::ostream& operator<<(std::ostream& os, const UTsetTZ& m) {
  UTime::setTZ(m.tz);
  return os;
}

std::ostream& operator<<(std::ostream& os, const UTime& t) {
  char buf[64];
  return os << t.to_charstar(buf, sizeof buf);
}
