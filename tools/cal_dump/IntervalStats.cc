#include "IntervalStats.h"

#include <math.h>
#include <stdio.h>

#include <string>

void IntervalStats::Moments::add(double a, double b) {
  n += 1;
  const double da = a - meanA;
  meanA += da / n;
  meanB += (b - meanB) / n;
  c += da * (b - meanB);
}

IntervalStats::IntervalStats(double seconds, size_t ncols, const std::vector<std::pair<int, int>>& pairs,
                             TableSink* next)
    : seconds_(seconds),
      pairs_(pairs),
      next_(next),
      single_(ncols),
      joint_(pairs.size()),
      held_(ncols, NAN),
      heldAt_(ncols, -INFINITY),
      out_(3 * ncols + pairs.size()),
      all_(out_.size()) {
  for (size_t i = 0; i < all_.size(); ++i) all_[i] = i;
}

namespace {

// "10-minute", "1-hour", "0.5-second": the interval's length in words.
std::string lengthWords(double seconds) {
  const struct {
    double unit;
    const char* name;
  } kUnits[] = {{86400, "day"}, {3600, "hour"}, {60, "minute"}};
  char text[64];
  for (const auto& u : kUnits)
    if (seconds >= u.unit && fmod(seconds, u.unit) == 0) {
      snprintf(text, sizeof text, "%g-%s", seconds / u.unit, u.name);
      return text;
    }
  snprintf(text, sizeof text, "%g-second", seconds);
  return text;
}

}  // namespace

std::vector<Column> IntervalStats::statsColumns(const std::vector<Column>& columns,
                                                const std::vector<std::pair<int, int>>& pairs, double seconds) {
  const std::string length = seconds > 0 ? lengthWords(seconds) + " " : "";
  auto words = [](const Column& c) { return c.longName.empty() ? c.name : c.longName; };
  std::vector<Column> out;
  for (const Column& c : columns) {
    out.push_back({c.name + ".mean", c.units, "time: mean", c.id, words(c) + ", " + length + "mean"});
    out.push_back({c.name + ".var", c.units.empty() ? "" : "(" + c.units + ")^2", "time: variance", c.id,
                   words(c) + ", " + length + "variance"});
    out.push_back({c.name + ".count", "", "time: sum", c.id, "number of good values of " + words(c) +
                   (seconds > 0 ? " in each " + lengthWords(seconds) + " interval" : "")});
  }
  for (const auto& p : pairs) {
    const Column& a = columns[static_cast<size_t>(p.first)];
    const Column& b = columns[static_cast<size_t>(p.second)];
    out.push_back({"cov." + a.name + "." + b.name, a.units.empty() && b.units.empty() ? "" : a.units + " " + b.units,
                   "", a.id.empty() || b.id.empty() ? "" : a.id + " " + b.id,
                   "covariance of " + words(a) + " and " + words(b) +
                       (seconds > 0 ? " in each " + lengthWords(seconds) + " interval" : "")});
  }
  return out;
}

void IntervalStats::row(const Record& r) {
  const double t = r.t, *values = r.values;
  const double start = floor(t / seconds_) * seconds_;
  if (!any_ || start != start_) {
    if (any_) flush();
    start_ = start;
  }
  for (size_t k = 0; k < r.npresent; ++k) {
    const size_t i = r.present[k];
    if (!isGood(values[i])) continue;
    single_[i].add(values[i], values[i]);
    any_ = true;
  }
  for (size_t k = 0; k < pairs_.size(); ++k) {
    const size_t a = static_cast<size_t>(pairs_[k].first), b = static_cast<size_t>(pairs_[k].second);
    if (!isGood(values[a])) continue;
    if (isGood(values[b]))
      joint_[k].add(values[a], values[b]);
    else if (t - heldAt_[b] <= kHoldSeconds)
      joint_[k].add(values[a], held_[b]);
  }
  for (size_t k = 0; k < r.npresent; ++k) {
    const size_t i = r.present[k];
    if (isGood(values[i])) {
      held_[i] = values[i];
      heldAt_[i] = t;
    }
  }
}

void IntervalStats::flush() {
  double* o = out_.data();
  for (Moments& m : single_) {
    *o++ = m.n > 0 ? m.meanA : NAN;
    *o++ = m.n > 1 ? m.c / (m.n - 1) : NAN;
    *o++ = m.n;
    m = Moments();
  }
  for (Moments& m : joint_) {
    *o++ = m.n > 1 ? m.c / (m.n - 1) : NAN;
    m = Moments();
  }
  next_->row(Record{start_, 0, out_.data(), all_.data(), all_.size()});
  any_ = false;
}

void IntervalStats::finish() {
  if (any_) flush();
  next_->finish();
}
