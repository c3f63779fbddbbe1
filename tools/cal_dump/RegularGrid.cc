#include "RegularGrid.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <string>

namespace heron {

namespace {

// The step holding ms, rounding towards minus infinity for times before 1970.
long long stepOf(long long ms, long long stepMs) {
  const long long q = ms / stepMs;
  return ms % stepMs < 0 ? q - 1 : q;
}

long long millisecondsOf(double t) { return llround(t * 1000.0); }

size_t slotOf(long long step, size_t nslots) {
  const long long n = static_cast<long long>(nslots);
  return static_cast<size_t>(((step % n) + n) % n);
}

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

RegularGrid::RegularGrid(long long stepMs, size_t ncols, double holdSeconds, TableSink* next)
    : stepMs_(stepMs),
      ncols_(ncols),
      // The open steps: those of the hold, and the one of the latest record.
      nslots_(static_cast<size_t>(ceil(holdSeconds * 1000.0 / static_cast<double>(stepMs))) + 1),
      next_(next),
      sums_(nslots_ * ncols),
      counts_(nslots_ * ncols),
      out_(ncols),
      all_(ncols) {
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
    top_ = written_ - 1;
  }
  if (step < written_) {
    for (size_t k = 0; k < r.npresent; ++k) late_ += isGood(r.values[r.present[k]]) ? 1 : 0;
    return;
  }
  if (step > top_) {
    // Only the steps of the hold stay open; the slots of the newer steps
    // are empty, as writing a step empties its slot.
    writeUpTo(step - static_cast<long long>(nslots_) + 1);
    top_ = step;
  }
  const size_t slot = slotOf(step, nslots_);
  double* sums = &sums_[slot * ncols_];
  uint32_t* counts = &counts_[slot * ncols_];
  for (size_t k = 0; k < r.npresent; ++k) {
    const size_t c = r.present[k];
    if (!isGood(r.values[c])) continue;
    sums[c] += r.values[c];
    ++counts[c];
  }
}

void RegularGrid::writeUpTo(long long step) {
  for (; written_ < step; ++written_) {
    const size_t slot = slotOf(written_, nslots_);
    double* sums = &sums_[slot * ncols_];
    uint32_t* counts = &counts_[slot * ncols_];
    for (size_t c = 0; c < ncols_; ++c) {
      out_[c] = counts[c] > 0 ? sums[c] / counts[c] : NAN;
      sums[c] = 0;
      counts[c] = 0;
    }
    const double t = static_cast<double>(written_ * stepMs_) / 1000.0;
    next_->row(Record{t, 0, out_.data(), all_.data(), all_.size()});
  }
}

void RegularGrid::finish() {
  if (started_) writeUpTo((spanned_ && last_ > top_ ? last_ : top_) + 1);
  next_->finish();
}

}  // namespace heron
