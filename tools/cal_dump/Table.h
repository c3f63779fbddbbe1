// The table that cal_dump writes beside FullDataSample's own forms: named
// columns with units, and records that each give a time, a group and a
// value per column.  Records of one group share a time axis (the samples
// of one channel, or the intervals of the statistics); a column without a
// value in a record holds NaN there.  The calibration's missing value
// (kMissing), and anything from kNearMissing up, comes in the records as
// the calibration gave it; isGood tells the sinks what is data.
#ifndef HERON_TOOLS_CAL_DUMP_TABLE_H
#define HERON_TOOLS_CAL_DUMP_TABLE_H

#include <cmath>
#include <string>

struct Column {
  std::string name;
  std::string units;
  // How a value sums up the samples of its time cell, in the words of the
  // CF conventions' cell_methods ("time: mean", "time: variance", ...);
  // empty for a sample's own value.
  std::string cellMethod;
  // The data id the value comes from (two, blank-separated, for a
  // covariance), and words for people; both may be empty.
  std::string id = {};
  std::string longName = {};
};

const double kMissing = 1e37;
// Values from here up are the missing value, or arithmetic done on it (a
// tilt rotating a lost component's 1e37): no data either.
const double kNearMissing = 1e36;

// A value that the statistics and the plot can use.
inline bool isGood(double v) { return std::isfinite(v) && std::fabs(v) < kNearMissing; }

// One record.  present lists, in ascending order, the columns that may hold
// a value (every other one is NaN), so that a sink need not look at the
// others.
struct Record {
  double t;
  int group;
  const double* values;  // one per column
  const size_t* present;
  size_t npresent;
};

class TableSink {
 public:
  virtual ~TableSink() = default;
  virtual void row(const Record& r) = 0;
  // Completes the output; throws oru::IOException (or
  // std::runtime_error for a tool that fails) when it cannot.
  virtual void finish() = 0;
};

#endif
