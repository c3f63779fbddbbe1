// Helpers for the calibration-library tests: parameter lists as the sensor
// configuration hands them over, scratch calibration files, and calls.
#ifndef HERON_TESTS_CALIB_TEST_UTIL_H
#define HERON_TESTS_CALIB_TEST_UTIL_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "calib/calib_func.h"

// A parameter list of numbers and texts, in order: Params{2, 1, "W/m2"}.
class Params {
 public:
  struct Arg {
    Arg(double v) : num(v), isText(false) {}
    Arg(int v) : num(v), isText(false) {}  // not a null text
    Arg(const char* s) : text(s), isText(true) {}
    Arg(const std::string& s) : text(s), isText(true) {}
    double num = 0;
    std::string text;
    bool isText;
  };
  Params(std::initializer_list<Arg> args) {
    for (const Arg& a : args) add(a);
  }
  Params& add(const Arg& a) {
    args_.push_back(std::make_unique<Arg>(a));
    ptrs_.push_back(a.isText ? static_cast<void*>(&args_.back()->text[0]) : &args_.back()->num);
    return *this;
  }
  void** get() const { return ptrs_.empty() ? nullptr : const_cast<void**>(ptrs_.data()); }
  int size() const { return static_cast<int>(ptrs_.size()); }

 private:
  std::vector<std::unique_ptr<Arg>> args_;
  std::vector<void*> ptrs_;
};

// A CalibInfo released at the end of its scope.
struct InfoDeleter {
  void operator()(CalibInfo* i) const { FreeCalibInfo(i); }
};
using InfoPtr = std::unique_ptr<CalibInfo, InfoDeleter>;

inline InfoPtr init(calib_init_t f, const Params& p, int nout = 1, int ichan = 0, int nchan = 1) {
  return InfoPtr(f(ichan, nchan, p.get(), p.size(), nout));
}

// The units an init function set, in output order.
inline std::vector<std::string> units(const CalibInfo* info) {
  std::vector<std::string> u;
  for (int i = 0; i < info->iout; ++i) u.push_back(info->units[i]);
  return u;
}

inline calib_input record(const void* bytes) {
  calib_input in;
  in.raw = static_cast<const char*>(bytes);
  return in;
}

// Converts one analog value at time t.
inline float convert(calib_func_t f, float x, double t = 0.0, int ichan = 0) {
  float out = 0.0f;
  f(&t, calib_input{x}, &out, ichan);
  return out;
}

// A scratch directory for calibration files, removed with its files.
class ScratchDir {
 public:
  ScratchDir() {
    char tmpl[] = "/tmp/calib_test_XXXXXX";
    if (mkdtemp(tmpl)) dir_ = tmpl;
  }
  ~ScratchDir() {
    for (const std::string& f : files_) unlink(f.c_str());
    if (!dir_.empty()) rmdir(dir_.c_str());
  }
  // Writes a file and returns its absolute path.
  std::string write(const std::string& name, const std::string& text) {
    std::string path = dir_ + "/" + name;
    FILE* fp = fopen(path.c_str(), "w");
    EXPECT_NE(fp, nullptr) << path;
    if (fp) {
      fwrite(text.data(), 1, text.size(), fp);
      fclose(fp);
    }
    files_.push_back(path);
    return path;
  }

 private:
  std::string dir_;
  std::vector<std::string> files_;
};

constexpr float kMissing = 1e37f;
constexpr double k2004 = 1072915200.0;  // 2004-01-01 00:00:00 UTC

#endif
