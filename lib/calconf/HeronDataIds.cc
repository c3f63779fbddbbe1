#include "calconf/HeronDataIds.h"

#include "calconf/ImpliedDataId.h"
#include "site/RecordReader.h"

namespace {
const int kMaxIndex = 32767;  // an index travels as a short
}

HeronDataIds::HeronDataIds(const SidList& sids, const char* didConfig) {
  RecordReader in(didConfig);
  std::vector<RecordValue> r;
  while (in.next(r)) {
    const bool lagged = r.size() == 4 && r[2].isWord && r[2].word == "lag";
    if (!(r.size() == 2 || lagged) || !r[0].isWord || r[1].isWord || !r[1].integral)
      in.fail("expected <name> <index> [lag <seconds>|<file>] ;");
    if (r[1].number < 0 || r[1].number > kMaxIndex) in.fail("index out of range 0-32767");
    if (byName_.count(r[0].word)) in.fail("data id " + r[0].word + " given twice");
    const int index = static_cast<int>(r[1].number);
    if (byIndex_.count(index)) in.fail("index " + std::to_string(index) + " given twice");
    PhaseEntry* phase = sids.phase_from_did(r[0].word.c_str());
    if (lagged) {
      ownLags_.emplace_back(new PhaseEntry);
      phase = ownLags_.back().get();
      phase->root_name = r[0].word;
      if (r[3].isWord)
        phase->lag.setFile(r[3].word);
      else
        phase->lag.setFixed(static_cast<float>(r[3].number));
    }
    add(r[0].word, index, phase);
  }
}

HeronDataId* HeronDataIds::add(std::string name, int index, PhaseEntry* phase) {
  ids_.emplace_back(new HeronDataId{std::move(name), static_cast<short>(index), phase, std::string(), 0.0});
  HeronDataId* id = ids_.back().get();
  byName_[id->name] = id;
  byIndex_[index] = id;
  return id;
}

HeronDataId* HeronDataIds::operator[](const char* name) {
  const auto it = byName_.find(name);
  if (it != byName_.end()) return it->second;
  if (!ImpliedDataId(name).valid()) return nullptr;
  const int index = byIndex_.empty() ? 0 : byIndex_.rbegin()->first + 1;
  if (index > kMaxIndex) return nullptr;  // no index left
  return add(name, index, nullptr);
}

HeronDataId* HeronDataIds::byIndex(int index) const {
  const auto it = byIndex_.find(index);
  return it == byIndex_.end() ? nullptr : it->second;
}
