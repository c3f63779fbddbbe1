#include "CsvSink.h"

#include <math.h>
#include <time.h>

namespace {
// A CSV field, quoted when it holds a separator, quote or line end.
std::string csvField(const std::string& s) {
  if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
  std::string q = "\"";
  for (char c : s) q += c == '"' ? std::string("\"\"") : std::string(1, c);
  return q + "\"";
}
}  // namespace

std::string isoTime(double t) {
  const long long ms = llround(t * 1000.0);
  const long long msOfSecond = ((ms % 1000) + 1000) % 1000;
  const time_t secs = static_cast<time_t>((ms - msOfSecond) / 1000);
  struct tm tm;
  char text[48];
  if (gmtime_r(&secs, &tm) == nullptr) return "?";
  const size_t n = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
  snprintf(text + n, sizeof text - n, ".%03lldZ", msOfSecond);
  return text;
}

CsvSink::CsvSink(FILE* fp, const std::vector<Column>& columns, bool flushEach)
    : fp_(fp), ncols_(columns.size()), flushEach_(flushEach) {
  std::string line = "time";
  for (const Column& c : columns) line += "," + csvField(c.units.empty() ? c.name : c.name + " (" + c.units + ")");
  fprintf(fp_, "%s\n", line.c_str());
}

void CsvSink::row(const Record& r) {
  const double* values = r.values;
  // Records come many to a second: the date and time of day are made once
  // a second.
  const long long ms = llround(r.t * 1000.0);
  const long long msOfSecond = ((ms % 1000) + 1000) % 1000;
  if (ms - msOfSecond != second_) {
    second_ = ms - msOfSecond;
    secondText_ = isoTime(static_cast<double>(second_) / 1000.0);
    secondText_.resize(secondText_.size() - 4);  // "mmmZ"
  }
  fprintf(fp_, "%s%03lldZ", secondText_.c_str(), msOfSecond);
  for (size_t i = 0; i < ncols_; ++i) {
    if (!isGood(values[i]))
      putc(',', fp_);
    else
      fprintf(fp_, ",%.6g", values[i]);
  }
  putc('\n', fp_);
  if (flushEach_) fflush(fp_);
}

void CsvSink::finish() {}
