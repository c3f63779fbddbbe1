#include "TimeOrder.h"

#include <math.h>

namespace heron {

TimeOrder::TimeOrder(double holdSeconds, size_t ncols, TableSink* next)
    : hold_(holdSeconds), next_(next), values_(ncols, NAN) {}

void TimeOrder::row(const Record& r) {
  if (r.t < passed_) {
    for (size_t k = 0; k < r.npresent; ++k) late_ += isGood(r.values[r.present[k]]) ? 1 : 0;
    return;
  }
  Held h{r.group, {}};
  h.values.reserve(r.npresent);
  for (size_t k = 0; k < r.npresent; ++k) h.values.emplace_back(r.present[k], r.values[r.present[k]]);
  held_.emplace(r.t, std::move(h));  // after the records of the same time
  if (r.t > newest_) {
    newest_ = r.t;
    passOn(newest_ - hold_);
  }
}

void TimeOrder::passOn(double before) {
  while (!held_.empty() && held_.begin()->first < before) {
    const auto first = held_.begin();
    present_.clear();
    for (const auto& v : first->second.values) {
      values_[v.first] = v.second;
      present_.push_back(v.first);
    }
    passed_ = first->first;
    next_->row(Record{first->first, first->second.group, values_.data(), present_.data(), present_.size()});
    for (size_t c : present_) values_[c] = NAN;
    held_.erase(first);
  }
}

void TimeOrder::finish() {
  passOn(INFINITY);
  next_->finish();
}

}  // namespace heron
