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

bool Lag::readNext() {
  char buf[512];
  while (fgets(buf, sizeof buf, fp)) {
    ++line_;
    const std::string where = lagFileName + ":" + std::to_string(line_) + ": ";
    if (!strchr(buf, '\n') && !feof(fp)) throw BadConfigurationException(where + "line too long");
    if (char* hash = strchr(buf, '#')) *hash = '\0';
    char* end = buf + strlen(buf);
    while (end > buf && strchr(" \t\r\n", end[-1])) *--end = '\0';
    if (end == buf) continue;
    char* word = end;
    while (word > buf && !strchr(" \t", word[-1])) --word;
    char* stop;
    const double value = strtod(word, &stop);
    if (word == buf || *stop != '\0' || !isfinite(value))
      throw BadConfigurationException(where + "expected a time and a lag");
    *word = '\0';
    const double t = UTime(0, buf).val();
    if (t == UTime::BIGBANG) throw BadConfigurationException(where + "unreadable time");
    if (t < utNext) throw BadConfigurationException(where + "time goes backward");
    utNext = t;
    lagNext = static_cast<float>(value);
    return true;
  }
  if (ferror(fp)) throw BadConfigurationException(oru::IOException(lagFileName.c_str(), "read", errno));
  utNext = INFINITY;
  return false;
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
