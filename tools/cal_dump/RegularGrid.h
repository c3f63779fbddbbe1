// Every column on one regular time grid.  Steps are a whole number of
// milliseconds long and aligned on multiples of their length since 1970;
// each step [t, t + step) becomes one record, stamped t, of group 0 with
// every column present: per column the mean of the good values (isGood)
// inside the step, NaN when there is none.  A step without any value is
// still written, all NaN, so that the rows are evenly spaced.  With a span
// (cover) the steps run from the one holding its start to the one holding
// its last instant; without one, from the step of the first record to that
// of the last.
//
// Records must come in time order (TimeOrder puts the lagged values
// back in place); a record of a step already written throws
// std::logic_error.  Its memory is one step's sums, whatever the length
// of the span.
#ifndef HERON_TOOLS_CAL_DUMP_REGULARGRID_H
#define HERON_TOOLS_CAL_DUMP_REGULARGRID_H

#include <stdint.h>

#include <vector>


#include "Table.h"

namespace heron {

// The longest step: 366 days in milliseconds, as for -a's intervals.
const long long kMaxGridStepMs = 366LL * 86400 * 1000;

// Reads a grid step: samples per second ("10", "0.5") or a period with its
// unit ("100ms", "2s", "1min") into *stepMs.  False for anything else, and
// for a step that is not a whole number of milliseconds from 1 ms to 366
// days (such as "3", a third of a second).
bool parseGridStep(const char* text, long long* stepMs);

class RegularGrid : public TableSink {
 public:
  RegularGrid(long long stepMs, size_t ncols, TableSink* next);
  // Makes the grid cover [from, to) (seconds since 1970) whatever the
  // records' times; called before the first record.
  void cover(double from, double to);
  void row(const Record& r) override;
  // Writes the current step, and the empty ones up to the span's end;
  // then finishes the next sink.
  void finish() override;

 private:
  void writeUpTo(long long step);  // every step before it

  long long stepMs_;
  TableSink* next_;
  bool started_ = false, spanned_ = false;
  long long first_ = 0, last_ = 0;  // of the span, when spanned_
  long long written_ = 0;           // the first step not yet written
  std::vector<double> sums_;        // of the step written_, per column
  std::vector<uint32_t> counts_;
  std::vector<double> out_;
  std::vector<size_t> all_;
};

}  // namespace heron

#endif
