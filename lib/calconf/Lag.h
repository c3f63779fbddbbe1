// The time lag of a sensor or of a data id: how many seconds its values
// trail the sample time.  A lag is either fixed or follows a lag file whose
// lines each give a time and the lag in force from that time on:
//
//   # time                   lag (s)
//   2026 11 21 12:00:00      0.25
//   1795262400               0.30     (seconds since 1970 also do)
//
// The time is anything UTime reads (UTC); the lag is the last word of the
// line, at most a day (86400 s) either way.  Blank lines and "#" comments are skipped; times must not decrease.
// Before the first time the first lag applies, after the last the last.
#ifndef HERON_CALCONF_LAG_H
#define HERON_CALCONF_LAG_H

#include <stdio.h>

#include <string>

#include "site/SiteFault.h"

class Lag {
 public:
  Lag() = default;
  ~Lag();
  Lag(const Lag&) = delete;
  Lag& operator=(const Lag&) = delete;

  // A fixed lag, seconds.
  void setFixed(float secs);
  // A lag file (a name with "$" components); opened on the first GetLag.
  void setFile(std::string name);

  // The lag in force at time t.  The file is read forward only: times are
  // expected to grow, and an earlier t than before gets the lag already in
  // force.  Throws BadConfigurationException "<file>:<line>: <what>" for a
  // file that cannot be opened or read.
  float GetLag(double t);

  // Reads the whole lag file (a name with "$" components) and adds each
  // fault of it to faults.
  static void check(const std::string& file, SiteFaults* faults);

  // A fixed lag other than zero, or a lag file.
  bool NonZero() const { return lag != 0.0f || !lagFileName.empty(); }

  double utNext = 0.0;  // time of the next line of the file; +inf after the last
  float lagNext = 0.0f;  // its lag
  float lag = 0.0f;      // the lag in force
  FILE* fp = nullptr;    // the open lag file
  std::string lagFileName;

 private:
  bool readNext();  // the next line into utNext and lagNext; false at end

  int line_ = 0;
};

#endif
