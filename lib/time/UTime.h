// Absolute time: one double of seconds since 1970-01-01 00:00:00 UTC, with
// the fraction of a second in the fractional part.  Every sample time, file
// start time and printed time in the system is a UTime.
//
// Constructors that take calendar fields or text read them in UTC when
// `local` is 0 and in the process's zone (see setTZ) otherwise.  Text that
// cannot be read at all yields BIGBANG, the mark of an unusable time.
//
// The output format and the zone are process-wide; change them from the
// main thread before samples flow.
#ifndef HERON_UTIME_H
#define HERON_UTIME_H

#include <ostream>
#include <string>

class UTime {
 public:
  // Marks a time that could not be read or computed.
  static const double BIGBANG;

  UTime(double t) : _utime(t) {}
  UTime(long t) : _utime(static_cast<double>(t)) {}

  // Calendar fields; mon is 1..12.  Years from 1900 on are taken as they
  // are; smaller ones are years since 1900, and 0..49 mean 2000..2049.  Fields
  // out of range carry over (month 13 is January of the next year); BIGBANG
  // when they carry the year beyond the range of an int, or the seconds
  // reach a billion.
  UTime(int local, int year, int mon, int day, int hour, int minute, float fsec);

  // Day of the year, 1 for January 1; the year as above.
  UTime(int local, int year, int yday, int hour, int minute, float fsec);

  // Free-form text: "now" (whole seconds), or one of the forms
  //   year monthname day [hh:mm[:ss.fff] | hhmmss.fff]
  //   year month day [hh:mm[:ss.fff] | hhmmss.fff]
  //   year yday hh:mm[:ss.fff]      year yday
  //   seconds since the epoch
  // with blanks between the fields.  Month names are matched by their first
  // three letters in any case.  Text with no number at all gives
  // 1970-01-01 00:00:00.
  UTime(int local, const char* str);

  // Text in a strptime format; no fraction of a second is kept.  BIGBANG
  // when the text does not match.
  UTime(int local, const char* str, const char* fmt);

  UTime(const UTime&) = default;
  UTime& operator=(const UTime&) = default;

  UTime& operator+=(double secs) {
    _utime += secs;
    return *this;
  }
  UTime& operator-=(double secs) {
    _utime -= secs;
    return *this;
  }
  operator double() const { return _utime; }
  double val() const { return _utime; }

  // Milliseconds of the UTC day, rounded to the nearest millisecond.  No
  // allocation and no zone work: safe on every sample.  -1 for a time that
  // is not a finite number.
  static int Msecs(double t);

  // Formats into string (slen bytes) with strftime in the process's zone;
  // f defaults to the format set by setfmt.  Besides the strftime
  // conversions, "%F" writes the fraction of the second to 3 places and
  // "%nF" to n places (n one digit), both with their leading "."; rounding
  // that reaches the next second carries into it.  The result is empty
  // when it does not fit.
  char* to_charstar(char* string, int slen, const char* f = nullptr) const;

  // The same, returned as a string (at most 127 characters).
  std::string string(const char* f = nullptr) const;

  // Broken-down local time, one field per slot, for the first n of: year,
  // month (1..12), day of month, day of year (1..366), hour, minute,
  // second, milliseconds, daylight-saving flag, seconds west of UTC, day of
  // week (0 = Sunday).  Writes nothing unless 1 <= n <= 11.
  void to_intArray(int* array, int n) const;

  // The default output format; null restores "%a %b %d %H:%M:%S %Z %Y".
  static void setfmt(const char* fmt);

  // Installs zone tz in the process environment ("TZ=" + tz) and re-reads
  // it; null or "" selects UTC.  Affects every later local-time
  // conversion in the process.
  static void setTZ(const char* tz);

  // 1..12 from the first three letters of a month name, any case; 0 when
  // none matches.  Lower-cases those three letters in place.
  static int month(char* name);

 private:
  double _utime;

  static char* _fmt;
  static char* _TZ;
};

// Stream manipulators: `os << UTsetfmt("%H:%M") << t` and
// `os << UTsetTZ("Europe/Berlin")` change the process-wide setting.
struct UTsetfmt {
  explicit UTsetfmt(const char* f) : fmt(f) {}
  const char* fmt;
};
struct UTsetTZ {
  explicit UTsetTZ(const char* z) : tz(z) {}
  const char* tz;
};

std::ostream& operator<<(std::ostream& os, const UTsetfmt& m);
std::ostream& operator<<(std::ostream& os, const UTsetTZ& m);

// Writes the time in the default format.
std::ostream& operator<<(std::ostream& os, const UTime& t);

#endif
