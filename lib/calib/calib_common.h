// Helpers shared by the conversion modules: the missing-value mark, the
// fatal configuration reports (parameter counts among them), parameter
// access, the CalibInfo of a use and the per-use tables.
#ifndef HERON_CALIB_CALIB_COMMON_H
#define HERON_CALIB_CALIB_COMMON_H

#include <stddef.h>
#include <stdint.h>

#include <initializer_list>
#include <vector>

#include "calib/calib_func.h"

// The library's mark for a value that could not be produced.
constexpr float CALIB_MISSING = 1e37f;

// Anything at or above this counts as missing when a value is tested.
constexpr float CALIB_MISSING_TEST = 1e36f;

// Days from 1970-01-01 to the proleptic Gregorian date y-m-d (month 1..12),
// for the calibration files' times and the receivers' dates.
inline int64_t calib_days_from_civil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

// A raw record reaches a conversion in at least this many bytes, zero past
// the sample's own: a decoder of variable records reads no further.
constexpr int CALIB_RECORD_ROOM = 256;

// Reports a configuration fault of a module's init function:
// "Error: <module> calibration function error", then the formatted line (its
// line end is the report's own), through logit, and exits with status 1.
[[noreturn]] void calib_init_fail(const char* module, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Checks that an init function got min .. max parameters; otherwise reports
// "Invalid number of parameters, should be <min>" where one count is allowed,
// else "Invalid number of parameters (<nparam>), should be <min> or <max>"
// ("<min> to <max>" for a wider range), as calib_init_fail does.
void calib_check_nparam(const char* module, int nparam, int min, int max);

// A CalibInfo for nout outputs with the module's version and these units in
// output order (a surplus unit is dropped).
CalibInfo* calib_info(const char* version, int nout, std::initializer_list<const char*> units);

// Reports a failed allocation as "<what>: <system error>" and exits with 1.
[[noreturn]] void calib_alloc_fail(const char* what);

// Parameter i as a number or as a text; the function's own documentation
// says which kind each parameter is.
inline double calib_param_double(void** params, int i) {
  return *static_cast<const double*>(params[i]);
}
inline const char* calib_param_string(void** params, int i) {
  return static_cast<const char*>(params[i]);
}

// A module's per-use state, indexed by ichan.  The first init call with a
// nonzero nchan sizes it; a later call with a larger nchan (a configuration
// set up again with more uses) grows it, keeping the entries already made.
// Entries live until the process ends.
template <typename T>
class UseTable {
 public:
  // Checks ichan against nchan and makes room; returns the entry, reset, for
  // the init function to fill.
  T& prepare(const char* module, int ichan, int nchan) {
    if (nchan < 0 || ichan < 0 || ichan >= nchan)
      calib_init_fail(module, "Use index %d is outside 0 .. %d\n", ichan, nchan - 1);
    if (static_cast<size_t>(nchan) > entries_.size()) entries_.resize(static_cast<size_t>(nchan));
    entries_[static_cast<size_t>(ichan)] = T();
    return entries_[static_cast<size_t>(ichan)];
  }
  T& operator[](int ichan) { return entries_[static_cast<size_t>(ichan)]; }
  T* data() { return entries_.data(); }

 private:
  std::vector<T> entries_;
};

// Parameters first, first+1, ... as floats, into the variables given in order.
inline void calib_param_floats(void** params, int first, std::initializer_list<float*> to) {
  for (float* f : to) *f = static_cast<float>(calib_param_double(params, first++));
}

// The unit of an optional text parameter: the text when present, else "".
inline const char* calib_optional_unit(void** params, int nparam, int i) {
  return i < nparam ? calib_param_string(params, i) : "";
}

#endif
