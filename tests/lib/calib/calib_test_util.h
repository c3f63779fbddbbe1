// Helpers for the calibration-library tests: parameter lists as the sensor
// configuration hands them over, CalibInfo ownership, and calibration files
// beneath a scratch install root.
#ifndef HERON_TESTS_CALIB_TEST_UTIL_H
#define HERON_TESTS_CALIB_TEST_UTIL_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "calib/calib_func.h"
#include "support/scratch_site.h"

// One parameter, a number or a text: Params{2, 1, "W/m2"}.
struct Arg {
  Arg(double v) : num(v) {}
  Arg(int v) : num(v) {}  // 0 is a number, not a null text
  Arg(const char* s) : text(s), isText(true) {}
  Arg(const std::string& s) : text(s), isText(true) {}
  double num = 0;
  std::string text;
  bool isText = false;
};
using Params = std::vector<Arg>;

using InfoPtr = std::unique_ptr<CalibInfo, decltype(&FreeCalibInfo)>;

// Initialises use ichan of nchan of the named function.
inline InfoPtr init(const char* name, Params p, int nout = 1, int ichan = 0, int nchan = 1) {
  std::vector<void*> ptrs;
  for (Arg& a : p) ptrs.push_back(a.isText ? static_cast<void*>(&a.text[0]) : &a.num);
  return InfoPtr(init_function(name)(ichan, nchan, ptrs.data(), static_cast<int>(ptrs.size()), nout), FreeCalibInfo);
}

// Writes a calibration file beneath the install root; returns the name that
// a configuration gives for it.
inline std::string calFile(const ScratchSite& site, const std::string& name, const std::string& text) {
  site.write("projects/p/cal_files/" + name, text);
  return name;
}

constexpr float kMissing = 1e37f;
constexpr double k2004 = 1072915200.0;  // 2004-01-01 00:00:00 UTC

#endif
