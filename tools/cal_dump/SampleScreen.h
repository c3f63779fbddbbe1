// What every calibrated sample passes before any output sees it, so that
// the sample forms, the table's sinks, the statistics and the plot agree.
// A value that is not finite, or whose magnitude is kNearMissing or more
// (a missing mark that arithmetic moved, such as the tilt rotating the
// sonic's 1e37), becomes the missing value kMissing itself.  With limits
// on, a value outside its variable's [min, max] of prep.config (the
// "limits" field of its sensor, one pair per output) becomes missing too,
// and is counted per variable.  Values already missing, and variables
// without limits, are left as they are.
#ifndef HERON_TOOLS_CAL_DUMP_SAMPLESCREEN_H
#define HERON_TOOLS_CAL_DUMP_SAMPLESCREEN_H

#include <string>
#include <unordered_map>
#include <vector>

#include "calconf/SidList.h"
#include "calconfig/TaggedSample.h"

namespace heron {

class SampleScreen {
 public:
  // sids is read when a data-id table is first seen; it must outlive the
  // screen.
  SampleScreen(const SidList& sids, bool limits) : sids_(sids), limits_(limits) {}
  void apply(FullDataSample& s);
  // "<program>: limits: u.wind 12 outside [-30, 30], ..." for the
  // variables that had values outside, in the order first seen; empty when
  // none had.
  std::string summary(const char* program) const;

 private:
  struct Bounds {
    std::string name;
    float min, max;
    long outside;
  };
  // Per value of a data-id table, the index of its bounds or -1.
  const std::vector<long>& boundsOf(const FullDataSample& s);

  const SidList& sids_;
  bool limits_;
  std::vector<Bounds> bounds_;
  std::unordered_map<const HeronDataId*, long> byId_;
  std::unordered_map<HeronDataId* const*, std::vector<long>> tables_;
  HeronDataId* const* lastInfo_ = nullptr;  // the table of the sample before
  const std::vector<long>* lastBounds_ = nullptr;
};

}  // namespace heron

#endif
