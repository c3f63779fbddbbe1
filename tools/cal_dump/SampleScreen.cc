#include "SampleScreen.h"

#include <math.h>
#include <stdio.h>

#include "Table.h"

namespace heron {

const std::vector<long>& SampleScreen::boundsOf(const FullDataSample& s) {
  if (s.info == lastInfo_ && lastBounds_ != nullptr) return *lastBounds_;
  lastInfo_ = s.info;
  auto t = tables_.find(s.info);
  if (t != tables_.end()) return *(lastBounds_ = &t->second);
  std::vector<long> table;
  for (int i = 0; i < s.size(); ++i) {
    const HeronDataId* id = s.info != nullptr ? s.info[i] : nullptr;
    if (!limits_ || id == nullptr) {
      table.push_back(-1);
      continue;
    }
    auto known = byId_.find(id);
    if (known == byId_.end()) {
      long index = -1;
      const SidEntry* sid = sids_.sid_from_did(id->name.c_str());
      const int output = sid != nullptr ? sid->WhichDid(id->name.c_str()) : -1;
      if (output >= 0 && output < sid->n_limits()) {
        const size_t o = static_cast<size_t>(output);
        index = static_cast<long>(bounds_.size());
        bounds_.push_back({id->name, sid->min[o], sid->max[o], 0});
      }
      known = byId_.emplace(id, index).first;
    }
    table.push_back(known->second);
  }
  return *(lastBounds_ = &tables_.emplace(s.info, std::move(table)).first->second);
}

void SampleScreen::apply(FullDataSample& s) {
  const std::vector<long>& table = boundsOf(s);
  const float missing = static_cast<float>(kMissing);
  for (int i = 0; i < s.size(); ++i) {
    float& v = s.data[i];
    if (!isGood(v)) {
      v = missing;
      continue;
    }
    const long b = static_cast<size_t>(i) < table.size() ? table[static_cast<size_t>(i)] : -1;
    if (b < 0) continue;
    Bounds& bounds = bounds_[static_cast<size_t>(b)];
    if (v < bounds.min || v > bounds.max) {
      v = missing;
      ++bounds.outside;
    }
  }
}

std::string SampleScreen::summary(const char* program) const {
  std::string line;
  for (const Bounds& b : bounds_) {
    if (b.outside == 0) continue;
    char text[160];
    snprintf(text, sizeof text, " %ld outside [%g, %g]", b.outside, static_cast<double>(b.min),
             static_cast<double>(b.max));
    line += (line.empty() ? std::string(program) + ": limits: " : std::string(", ")) + b.name + text;
  }
  return line;
}

}  // namespace heron
