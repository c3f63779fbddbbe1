#include "calconf/Lag.h"

#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "base/Exception.h"
#include "site/heron_fopen.h"
#include "time/UTime.h"

Lag::~Lag() {
  if (fp) fclose(fp);
}

void Lag::setFixed(float secs) {
  lag = secs;
  lagFileName.clear();
}

void Lag::setFile(std::string name) {
  lag = 0.0f;
  lagFileName = std::move(name);
}

namespace {
// The largest lag a file may give, seconds either way: a day.  A larger one
// is a typing error, and one beyond a float's range would read as infinite.
const double kMaxLag = 86400.0;

// Reads one line (comment and end stripped in place) into t and lag;
// returns "" when done, "blank" for a line with nothing, else the fault.
std::string parseLine(char* buf, double* t, float* lag) {
  if (char* hash = strchr(buf, '#')) *hash = '\0';
  char* end = buf + strlen(buf);
  while (end > buf && strchr(" \t\r\n", end[-1])) *--end = '\0';
  if (end == buf) return "blank";
  char* word = end;
  while (word > buf && !strchr(" \t", word[-1])) --word;
  char* stop;
  const double value = strtod(word, &stop);
  const bool number = stop != word && *stop == '\0' && isfinite(value);
  const std::string lagText(word);
  *word = '\0';
  if (strspn(buf, " \t") == strlen(buf) || !number)
    return "expected a time and a lag";
  if (fabs(value) > kMaxLag) return "lag " + lagText + " s is beyond a day (86400 s)";
  *t = UTime(0, buf).val();
  if (*t == UTime::BIGBANG) return "unreadable time";
  *lag = static_cast<float>(value);
  return "";
}
}  // namespace

bool Lag::readNext() {
  char buf[512];
  while (fgets(buf, sizeof buf, fp)) {
    ++line_;
    const std::string where = lagFileName + ":" + std::to_string(line_) + ": ";
    if (!strchr(buf, '\n') && !feof(fp)) {
      int c;
      while ((c = getc(fp)) != EOF && c != '\n') {
      }  // the next read starts on the next line
      throw BadConfigurationException(where + "line too long");
    }
    double t = 0;
    float value = 0;
    const std::string fault = parseLine(buf, &t, &value);
    if (fault == "blank") continue;
    if (!fault.empty()) throw BadConfigurationException(where + fault);
    if (t < utNext) throw BadConfigurationException(where + "time goes backward");
    utNext = t;
    lagNext = value;
    return true;
  }
  if (ferror(fp)) throw BadConfigurationException(oru::IOException(lagFileName.c_str(), "read", errno));
  utNext = INFINITY;
  return false;
}

void Lag::check(const std::string& file, SiteFaults* faults) {
  Lag lag;
  lag.setFile(file);
  try {
    lag.fp = heronFopen(lag.lagFileName, "r");
  } catch (const oru::IOException& e) {
    faults->push_back(SiteFault{lag.lagFileName, 0, e.toString()});
    return;
  }
  lag.utNext = -INFINITY;
  bool any = false;
  const size_t before = faults->size();
  for (;;) {
    try {
      if (!lag.readNext()) break;
      any = true;
    } catch (const BadConfigurationException& e) {
      const std::string text = e.toString(), prefix = lag.lagFileName + ":" + std::to_string(lag.line_) + ": ";
      const size_t at = text.find(prefix);
      faults->push_back(
          SiteFault{lag.lagFileName, lag.line_, at == std::string::npos ? text : text.substr(at + prefix.size())});
      if (ferror(lag.fp)) break;
    }
  }
  if (!any && faults->size() == before) faults->push_back(SiteFault{lag.lagFileName, 0, "no lag in the file"});
}

float Lag::GetLag(double t) {
  if (lagFileName.empty()) return lag;
  if (!fp) {
    try {
      fp = heronFopen(lagFileName, "r");
    } catch (const oru::IOException& e) {
      throw BadConfigurationException(e);
    }
    utNext = -INFINITY;
    if (!readNext()) throw BadConfigurationException(lagFileName + ": no lag in the file");
    lag = lagNext;
  }
  while (t >= utNext) {
    lag = lagNext;
    readNext();
  }
  return lag;
}
