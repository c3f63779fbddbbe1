#include "time/StrictTime.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "time/UTime.h"

namespace heron {
namespace {

// The fields of a typed time.  yday is set instead of mon/day for the
// day-of-year form; offset is the written zone offset in seconds.
struct Fields {
  int year = 0, mon = 0, day = 0, yday = 0, hour = 0, minute = 0, sec = 0;
  double frac = 0;
  bool zoned = false;
  int offset = 0;
};

// A cursor over the text.  digits and lit advance only on success; a form
// that fails part-way is abandoned, and the next starts from a copy.
struct Cursor {
  const char* p;

  // Exactly n digits (n > 0), or at least n when atLeast.
  bool digits(int n, int* out, bool atLeast = false) {
    const char* q = p;
    long v = 0;
    while (isdigit(static_cast<unsigned char>(*q)) && (atLeast || q - p < n)) {
      if (v > 100000000) return false;
      v = v * 10 + (*q++ - '0');
    }
    if (q - p < n) return false;
    p = q;
    *out = static_cast<int>(v);
    return true;
  }
  bool lit(char c) { return *p == c ? (++p, true) : false; }
  bool blanks() {
    const char* q = p;
    while (*p == ' ' || *p == '\t') ++p;
    return p != q;
  }
  // "." and digits: a fraction of a second; nothing there is a zero fraction.
  bool fraction(double* out) {
    *out = 0;
    if (*p != '.') return true;
    if (!isdigit(static_cast<unsigned char>(p[1]))) return false;
    char* end;
    *out = strtod(p, &end);  // ".fff": the nearest double, as UTime reads it
    p = end;
    return true;
  }
  // hh:mm (h:mm too when looseHour), then optionally :ss[.fff].
  bool clock(Fields* f, bool looseHour) {
    const bool oneDigit = looseHour && isdigit(static_cast<unsigned char>(p[0])) && p[1] == ':';
    if (!digits(oneDigit ? 1 : 2, &f->hour) || !lit(':') || !digits(2, &f->minute)) return false;
    if (*p != ':') return true;
    ++p;
    return digits(2, &f->sec) && fraction(&f->frac);
  }
};

const char* const kMonthNames[12] = {"january", "february", "march",     "april",   "may",      "june",
                                     "july",    "august",   "september", "october", "november", "december"};

// A month's full name or its first three letters, any case: 1..12, else 0.
int monthNamed(Cursor* c) {
  size_t n = 0;
  char word[16];
  while (isalpha(static_cast<unsigned char>(c->p[n])) && n < sizeof word - 1) {
    word[n] = static_cast<char>(tolower(static_cast<unsigned char>(c->p[n])));
    ++n;
  }
  word[n] = '\0';
  for (int m = 0; m < 12; ++m)
    if ((n == 3 && strncmp(word, kMonthNames[m], 3) == 0) || strcmp(word, kMonthNames[m]) == 0) {
      c->p += n;
      return m + 1;
    }
  return 0;
}

bool leap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int daysIn(int y, int m) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && leap(y) ? 29 : kDays[m - 1];
}

// YYYY-MM-DD[(T| )clock][Z|+hh:mm|-hh:mm]
bool readIso(Cursor c, Fields* f) {
  if (!c.digits(4, &f->year) || !c.lit('-') || !c.digits(2, &f->mon) || !c.lit('-') || !c.digits(2, &f->day))
    return false;
  if (*c.p == '\0') return true;
  if (!(c.lit('T') || c.lit(' ')) || !c.clock(f, false)) return false;
  if (c.lit('Z')) return (f->zoned = true), *c.p == '\0';
  if (*c.p != '+' && *c.p != '-') return *c.p == '\0';
  const int sign = *c.p++ == '-' ? -1 : 1;
  int h, m;
  if (!c.digits(2, &h) || !c.lit(':') || !c.digits(2, &m) || *c.p != '\0' || h > 23 || m > 59) return false;
  f->zoned = true;
  f->offset = sign * (h * 3600 + m * 60);
  return true;
}

// hhmmss[.fff] as one word.
bool packedClock(Cursor* c, Fields* f) {
  int v;
  if (!c->digits(6, &v)) return false;
  f->hour = v / 10000, f->minute = v / 100 % 100, f->sec = v % 100;
  return c->fraction(&f->frac);
}

// YYYY (monthname|MM) DD [clock|hhmmss.fff], or YYYY yday [clock].
bool readBlanked(Cursor c, Fields* f) {
  if (!c.digits(4, &f->year) || !c.blanks()) return false;
  int n;
  if (!(f->mon = monthNamed(&c))) {
    if (!c.digits(1, &n, true)) return false;
    const bool spaced = c.blanks(), end = *c.p == '\0';
    if (end || (isdigit(static_cast<unsigned char>(c.p[0])) && c.p[1] == ':') ||
        (isdigit(static_cast<unsigned char>(c.p[1])) && c.p[2] == ':')) {
      f->yday = n;  // the day-of-year form: a clock or nothing follows
      return end || (spaced && c.clock(f, true) && *c.p == '\0');
    }
    if (!spaced) return false;
    f->mon = n;
  } else if (!c.blanks()) {
    return false;
  }
  if (!c.digits(1, &f->day, true)) return false;
  if (c.blanks() && *c.p != '\0') {
    const Cursor at = c;
    if (!c.clock(f, true) && !((c = at), packedClock(&c, f))) return false;
    c.blanks();
  }
  return *c.p == '\0';
}

// Seconds since the epoch: nine digits or more, so that neither a year nor a
// YYYYMMDD date is ever taken for a count of seconds.
bool readEpoch(Cursor c, double* out) {
  double whole = 0, frac;
  const char* start = c.p;
  for (; isdigit(static_cast<unsigned char>(*c.p)); ++c.p) whole = whole * 10 + (*c.p - '0');
  if (c.p - start < 9 || c.p - start > 12 || !c.fraction(&frac) || *c.p != '\0') return false;
  *out = whole + frac;
  return true;
}

bool inRange(const Fields& f) {
  if (f.year < 1900 || f.hour > 23 || f.minute > 59 || f.sec > 60) return false;
  if (f.yday != 0) return f.yday >= 1 && f.yday <= (leap(f.year) ? 366 : 365);
  return f.mon >= 1 && f.mon <= 12 && f.day >= 1 && f.day <= daysIn(f.year, f.mon);
}

}  // namespace

bool parseTimeStrict(const char* text, int local, double* seconds) {
  if (text == nullptr) return false;
  while (*text == ' ' || *text == '\t') ++text;
  std::string trimmed(text);
  while (!trimmed.empty() && (trimmed.back() == ' ' || trimmed.back() == '\t')) trimmed.pop_back();
  if (trimmed == "now") {
    *seconds = static_cast<double>(time(nullptr));
    return true;
  }
  const Cursor c{trimmed.c_str()};
  if (readEpoch(c, seconds)) return true;
  Fields f;
  if (!(readIso(c, &f) || ((f = Fields()), readBlanked(c, &f))) || !inRange(f)) return false;
  // Whole seconds go through UTime, which knows the zone; the fraction is
  // added after, so it keeps the precision of a double.
  const float sec = static_cast<float>(f.sec);
  const int asLocal = f.zoned ? 0 : local;
  double t = f.yday != 0 ? UTime(asLocal, f.year, f.yday, f.hour, f.minute, sec).val()
                         : UTime(asLocal, f.year, f.mon, f.day, f.hour, f.minute, sec).val();
  if (t == UTime::BIGBANG) return false;
  *seconds = t - f.offset + f.frac;
  return true;
}

std::string refusedTime(const char* program, const char* text) {
  return std::string(program) + ": cannot read the time \"" + (text ? text : "") +
         "\": write it as 2026-11-21T12:00:00Z or \"2026 11 21 12:00\"";
}

}  // namespace heron
