#include "TimeOrder.h"

#include <math.h>

#include <iterator>

namespace heron {

TimeOrder::TimeOrder(double holdSeconds, size_t ncols, TableSink* next)
    : hold_(holdSeconds), next_(next), values_(ncols, NAN) {}

void TimeOrder::row(const Record& r) {
  if (r.t < passed_) {
    for (size_t k = 0; k < r.npresent; ++k) late_ += isGood(r.values[r.present[k]]) ? 1 : 0;
    return;
  }
  Held h{r.t, seq_++, {}};
  if (!spare_.empty()) {
    h.values.swap(spare_.back());
    spare_.pop_back();
  }
  for (size_t k = 0; k < r.npresent; ++k) h.values.emplace_back(r.present[k], r.values[r.present[k]]);
  const size_t group = static_cast<size_t>(r.group);
  if (held_.size() <= group) held_.resize(group + 1);
  std::deque<Held>& queue = held_[group];
  auto at = queue.end();
  while (at != queue.begin() && h.before(*std::prev(at))) --at;
  if (at == queue.begin()) fronts_.push(Front{h.t, h.seq, group});
  queue.insert(at, std::move(h));
  if (r.t > newest_) {
    newest_ = r.t;
    passOn(newest_ - hold_);
  }
}

void TimeOrder::passOn(double before) {
  while (!fronts_.empty() && fronts_.top().t < before) {
    const Front front = fronts_.top();
    fronts_.pop();
    std::deque<Held>& queue = held_[front.group];
    if (queue.empty() || queue.front().seq != front.seq) continue;
    Held& h = queue.front();
    present_.clear();
    for (const auto& v : h.values) {
      values_[v.first] = v.second;
      present_.push_back(v.first);
    }
    passed_ = h.t;
    next_->row(Record{h.t, static_cast<int>(front.group), values_.data(), present_.data(), present_.size()});
    for (size_t c : present_) values_[c] = NAN;
    h.values.clear();
    spare_.push_back(std::move(h.values));
    queue.pop_front();
    if (!queue.empty()) fronts_.push(Front{queue.front().t, queue.front().seq, front.group});
  }
}

void TimeOrder::finish() {
  passOn(INFINITY);
  next_->finish();
}

}  // namespace heron
