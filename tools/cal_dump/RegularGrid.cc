#include "RegularGrid.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <stdexcept>
#include <string>

namespace heron {

namespace {

// The step holding ms, rounding towards minus infinity for times before 1970.
long long stepOf(long long ms, long long stepMs) {
  const long long q = ms / stepMs;
  return ms % stepMs < 0 ? q - 1 : q;
}

long long millisecondsOf(double t) { return llround(t * 1000.0); }


}  // namespace

bool parseGridStep(const char* text, long long* stepMs) {
  // Plain decimals only: strtod would also take blanks, signs, exponents,
  // hexadecimal, "inf" and "nan".
  const size_t n = strspn(text, "0123456789.");
  const std::string number(text, n);
  if (number.empty() || number.find_first_of("0123456789") == std::string::npos ||
      number.find('.') != number.rfind('.'))
    return false;
  const double v = strtod(number.c_str(), nullptr);
  const std::string unit(text + n);
  double ms;
  if (unit.empty())
    ms = 1000.0 / v;  // samples per second
  else if (unit == "ms")
    ms = v;
  else if (unit == "s")
    ms = v * 1000.0;
  else if (unit == "min")
    ms = v * 60000.0;
  else
    return false;
  if (!(v > 0) || !(ms >= 1 && ms <= static_cast<double>(kMaxGridStepMs))) return false;
  const long long whole = llround(ms);
  if (fabs(ms - static_cast<double>(whole)) > 1e-9 * ms) return false;
  *stepMs = whole;
  return true;
}

RegularGrid::RegularGrid(long long stepMs, size_t ncols, TableSink* next)
    : stepMs_(stepMs), next_(next), sums_(ncols), counts_(ncols), out_(ncols), all_(ncols) {
  for (size_t i = 0; i < ncols; ++i) all_[i] = i;
}

void RegularGrid::cover(double from, double to) {
  spanned_ = true;
  first_ = stepOf(millisecondsOf(from), stepMs_);
  last_ = stepOf(millisecondsOf(to) - 1, stepMs_);
}

void RegularGrid::row(const Record& r) {
  const long long step = stepOf(millisecondsOf(r.t), stepMs_);
  if (!started_) {
    started_ = true;
    written_ = spanned_ && first_ < step ? first_ : step;
  }
  if (step < written_) throw std::logic_error("RegularGrid: a record at " + std::to_string(r.t) + " after a later one");
  writeUpTo(step);
  for (size_t k = 0; k < r.npresent; ++k) {
    const size_t c = r.present[k];
    if (!isGood(r.values[c])) continue;
    sums_[c] += r.values[c];
    ++counts_[c];
  }
}

void RegularGrid::writeUpTo(long long step) {
  for (; written_ < step; ++written_) {
    for (size_t c = 0; c < out_.size(); ++c) {
      out_[c] = counts_[c] > 0 ? sums_[c] / counts_[c] : NAN;
      sums_[c] = 0;
      counts_[c] = 0;
    }
    const double t = static_cast<double>(written_ * stepMs_) / 1000.0;
    next_->row(Record{t, 0, out_.data(), all_.data(), all_.size()});
  }
}

void RegularGrid::finish() {
  if (started_) writeUpTo((spanned_ && last_ > written_ ? last_ : written_) + 1);
  next_->finish();
}

}  // namespace heron
