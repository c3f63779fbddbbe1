// Statistics of the table's records over intervals of a fixed length,
// aligned on multiples of it since 1970: for every column the mean, the
// variance and the count of good values (missing and absent values left
// out), and for every chosen pair of columns their covariance.  Each
// finished interval that held a good value is one record (group 0, at the
// interval's start) for the next sink, whose columns statsColumns() gives.
//
// Means and second moments are updated one value at a time (Welford), so a
// day of 20 Hz data with a large mean loses no precision.  Variances and
// covariances divide by n - 1 (NaN below two values).  A pair is taken on
// each record where its first column has a good value, with the second
// column's value from the same record or, failing that, its latest good
// value if that came at most kHoldSeconds before (variables of different
// channels arrive in different records).
#ifndef HERON_TOOLS_CAL_DUMP_INTERVALSTATS_H
#define HERON_TOOLS_CAL_DUMP_INTERVALSTATS_H

#include <utility>
#include <vector>

#include "Table.h"

class IntervalStats : public TableSink {
 public:
  static constexpr double kHoldSeconds = 0.5;

  IntervalStats(double seconds, size_t ncols, const std::vector<std::pair<int, int>>& pairs, TableSink* next);
  void row(const Record& r) override;
  // Writes the last interval, then finishes the next sink.
  void finish() override;

  // The columns of the records: per column "<name>.mean", "<name>.var",
  // "<name>.count", then per pair "cov.<a>.<b>".  A mean says "time: mean",
  // a variance "time: variance", a count "time: sum" (of one per good
  // value); a covariance no cell method, as the conventions have none for
  // it.  Their long names add the statistic and, when seconds is given,
  // the interval's length to their columns'.
  static std::vector<Column> statsColumns(const std::vector<Column>& columns,
                                          const std::vector<std::pair<int, int>>& pairs, double seconds = 0);

 private:
  struct Moments {
    double n = 0, meanA = 0, meanB = 0, c = 0;  // c: sum of products of deviations
    void add(double a, double b);
  };
  void flush();

  double seconds_;
  std::vector<std::pair<int, int>> pairs_;
  TableSink* next_;
  double start_ = 0;  // of the current interval
  bool any_ = false;
  std::vector<Moments> single_, joint_;
  std::vector<double> held_, heldAt_;
  std::vector<double> out_;
  std::vector<size_t> all_;  // every column of out_ is present
};

#endif
