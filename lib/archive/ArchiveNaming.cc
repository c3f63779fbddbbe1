#include "archive/ArchiveNaming.h"

#include <math.h>
#include <string.h>
#include <time.h>

namespace heron {

namespace {
// text read whole by pattern into tm; false when any of it is left over.
bool readWhole(const std::string& text, const char* pattern, struct tm* tm) {
  memset(tm, 0, sizeof *tm);
  const char* end = strptime(text.c_str(), pattern, tm);
  return end != nullptr && *end == '\0';
}

// A run of eight digits at p read as a date; false for an impossible one
// (20261131 is not carried into December).
bool dateAt(const char* p, NamedStart* start) {
  struct tm tm;
  if (!readWhole(std::string(p, 8), "%Y%m%d", &tm) || tm.tm_year < 70) return false;
  const int mon = tm.tm_mon, mday = tm.tm_mday;
  const time_t t = timegm(&tm);
  if (t == -1 || tm.tm_mon != mon || tm.tm_mday != mday) return false;
  start->day = static_cast<double>(t);
  start->secs = -1;
  if (p[8] == '_' && strspn(p + 9, "0123456789") == 6 && readWhole(std::string(p + 9, 6), "%H%M%S", &tm) &&
      tm.tm_sec < 60)
    start->secs = tm.tm_hour * 3600L + tm.tm_min * 60L + tm.tm_sec;
  return true;
}
}  // namespace

bool startInName(const char* path, const char* pattern, NamedStart* start) {
  const char* base = strrchr(path, '/');
  base = base != nullptr ? base + 1 : path;
  if (pattern != nullptr) {
    struct tm tm;
    if (!readWhole(base, pattern, &tm)) return false;
    const double t = static_cast<double>(timegm(&tm));
    start->day = floor(t / 86400) * 86400;
    start->secs = static_cast<long>(t - start->day);
    return true;
  }
  for (const char* p = base; *p != '\0';) {
    const size_t n = strspn(p, "0123456789");
    if (n == 8 && dateAt(p, start)) return true;
    p += n > 0 ? n : 1;
  }
  return false;
}

bool nameOfStart(const std::string& pattern, double t, std::string* name) {
  const time_t s = static_cast<time_t>(floor(t));
  struct tm tm;
  char text[512];
  if (gmtime_r(&s, &tm) == nullptr || strftime(text, sizeof text, pattern.c_str(), &tm) == 0) return false;
  *name = text;
  return true;
}

bool staysInside(const std::string& pattern) {
  if (pattern.empty() || pattern[0] == '/') return false;
  for (size_t start = 0; start <= pattern.size();) {
    size_t end = pattern.find('/', start);
    if (end == std::string::npos) end = pattern.size();
    if (pattern.compare(start, end - start, "..") == 0) return false;
    start = end + 1;
  }
  return true;
}

}  // namespace heron
