// The table as a NetCDF-4 file following the CF conventions.  Each group of
// records gets a time dimension of its own ("time" for the first group,
// "time_2", "time_3", ... after it) and a coordinate variable of that name:
// seconds since 1970-01-01 00:00:00 UTC, as doubles.  A column is a float
// variable named as the column, on the time dimension of the group where it
// first has a value (the first one if it never has), with its units, long_name and _FillValue 1e37 (the
// calibration's missing value, also written where a record of its group
// has none).  Records are buffered and written in blocks.
#ifndef HERON_TOOLS_CAL_DUMP_NETCDFSINK_H
#define HERON_TOOLS_CAL_DUMP_NETCDFSINK_H

#include <string>
#include <vector>

#include "Table.h"

class NetcdfSink : public TableSink {
 public:
  // Creates path (clobbering it); title goes into the global attributes.
  // Throws oru::IOException with the library's message.
  NetcdfSink(const std::string& path, const std::vector<Column>& columns, const std::string& title);
  ~NetcdfSink() override;
  void row(const Record& r) override;
  // Writes what is buffered and closes the file.
  void finish() override;

 private:
  struct Group {
    int dim = -1, timeVar = -1;
    size_t written = 0;
    std::vector<size_t> cols;  // the columns on this dimension
    std::vector<double> times;
    std::vector<float> values;  // cols.size() per record
  };
  static const size_t kBlock = 4096;
  void check(int status, const char* what) const;
  Group& groupFor(const Record& r);
  void defineColumn(size_t c, int index);  // in define mode
  void flush(Group& g);

  std::string path_;
  std::vector<Column> columns_;
  std::vector<int> colGroup_;  // -1 until the column is placed
  std::vector<int> colVar_;
  std::vector<Group> groups_;
  std::vector<int> groupIndex_;  // record group -> groups_ index, -1 for none yet
  int nc_ = -1;
};

#endif
