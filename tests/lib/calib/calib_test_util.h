// Helpers for the calibration-library tests: parameter lists as the sensor
// configuration hands them over, CalibInfo ownership, calibration files
// beneath a scratch install root, and one table runner for every
// conversion: each case is set up once, then fed its samples in order.
#ifndef HERON_TESTS_CALIB_TEST_UTIL_H
#define HERON_TESTS_CALIB_TEST_UTIL_H

#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "calib/calib_common.h"
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

constexpr float kMissing = 1e37f;
constexpr double k2004 = 1072915200.0;  // 2004-01-01 00:00:00 UTC

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

// Record bytes as the instrument sends them, embedded zeros included.
template <size_t N>
std::string B(const char (&bytes)[N]) {
  return std::string(bytes, N - 1);
}

// A conversion's input: volts, or a record (a volts literal 0 must be 0.0f).
struct Input {
  Input(float v) : volts(v) {}
  Input(const char* r) : rec(r), isRec(true) {}
  Input(std::string r) : rec(std::move(r)), isRec(true) {}
  float volts = 0;
  std::string rec;
  bool isRec = false;
};

// Feeds one sample at time t to use `use` of the named conversion, a record
// copied into a zero-filled room as the pipeline hands it over; *moved gets
// the time as the conversion leaves it.
inline std::vector<float> convert(const char* name, const Input& in, size_t nout, double t = k2004 + 60, int use = 0,
                                  double* moved = nullptr) {
  std::vector<char> room(std::max<size_t>(CALIB_RECORD_ROOM, in.rec.size()), 0);
  std::copy(in.rec.begin(), in.rec.end(), room.begin());
  std::vector<float> out(nout, -99.0f);
  calib_input ci;
  if (in.isRec) ci.raw = room.data();
  else ci.volts = in.volts;
  calib_function(name)(&t, ci, out.data(), use);
  if (moved) *moved = t;
  return out;
}

// One sample: its time, its input, the outputs wanted, and how much the
// conversion moves the time.
struct Step {
  double t;
  Input in;
  std::vector<float> out;
  double dt = 0;
};

struct Case {
  const char* name;
  Params params;
  std::vector<Step> steps;
  float tol = 1e-5f;                     // absolute, widened by float rounding; missing matches exactly
  std::vector<std::string> units = {};  // empty: not checked
  const char* summary = nullptr;        // null: not checked
};

// Sets each case up as use 0 of 1 (and once as a description only), then
// feeds it its steps in order.
inline void runCases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const size_t nout = c.steps[0].out.size();
    EXPECT_EQ(init(c.name, c.params, static_cast<int>(nout), 0, 0)->iout, static_cast<int>(nout));
    InfoPtr info = init(c.name, c.params, static_cast<int>(nout));
    const std::vector<std::string> units(info->units, info->units + info->iout);
    EXPECT_EQ(units, c.units.empty() ? units : c.units);
    EXPECT_STREQ(info->paramString, c.summary ? c.summary : info->paramString);
    for (const Step& s : c.steps) {
      double t;
      const std::vector<float> out = convert(c.name, s.in, nout, s.t, 0, &t);
      EXPECT_EQ(t, s.t + s.dt);
      for (size_t i = 0; i < nout; ++i) {
        const float want = s.out[i], tol = want == kMissing ? 0 : std::max(c.tol, 1e-6f * fabsf(want));
        EXPECT_NEAR(out[i], want, tol) << "t=" << s.t - k2004 << " output " << i;
      }
    }
  }
}

#endif
