// Puts the table's records back in time order for the sinks that need it
// (the interval statistics, the regular grid).  Calibration hands out a
// value with a time lag moved back by its lag, after records of later
// times: a gas analyser behind a 0.8 s tube interleaves its values with the
// sonic's of 0.8 s later.  Records are held until the newest record is
// holdSeconds past them, then passed on in time order (records of the same
// time in the order they came), each with its group (0 or more, as
// RowMaker numbers them).  A record that comes after a later one was passed
// on is left out, its good values counted (late()).  Memory is the records
// of holdSeconds, whatever the length of the span.
#ifndef HERON_TOOLS_CAL_DUMP_TIMEORDER_H
#define HERON_TOOLS_CAL_DUMP_TIMEORDER_H

#include <deque>
#include <queue>
#include <utility>
#include <vector>

#include "Table.h"

namespace heron {

class TimeOrder : public TableSink {
 public:
  TimeOrder(double holdSeconds, size_t ncols, TableSink* next);
  void row(const Record& r) override;
  // Passes on every record held, then finishes the next sink.
  void finish() override;
  long late() const { return late_; }

 private:
  struct Held {
    double t;
    long seq;  // the order the records came in
    std::vector<std::pair<size_t, double>> values;  // the present columns
    bool before(const Held& o) const { return t < o.t || (t == o.t && seq < o.seq); }
  };
  void passOn(double before);  // the records held from before that time

  double hold_;
  TableSink* next_;
  // A group's front: its time, order and group.
  struct Front {
    double t;
    long seq;
    size_t group;
    bool operator<(const Front& o) const { return t > o.t || (t == o.t && seq > o.seq); }  // latest on top
  };

  // Per group, in time order.  One group's records share their lag, so
  // they come in order (nearly, while a lag file changes the lag): a new one
  // goes in from the back, and passing on merges the groups' fronts, which
  // fronts_ orders (an entry whose record is no longer its group's front
  // is dropped when it comes up).  The value lists passed on are kept for
  // reuse.
  std::vector<std::deque<Held>> held_;
  std::priority_queue<Front> fronts_;
  std::vector<std::vector<std::pair<size_t, double>>> spare_;
  long seq_ = 0;
  double newest_ = -1e300, passed_ = -1e300;
  long late_ = 0;
  std::vector<double> values_;
  std::vector<size_t> present_;
};

}  // namespace heron

#endif
