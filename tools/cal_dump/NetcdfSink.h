// The table as a NetCDF-4 file following the CF conventions, which xarray
// and the CF tools read as is.
//
// Time: each group of records gets a time dimension of its own ("time" for
// the first group, "time_2", "time_3", ... after it; records that all say
// group 0, as statistics do, share one) and a coordinate variable of that
// name: whole milliseconds since 1970-01-01 00:00:00 UTC as 64-bit
// integers, exact where seconds in a double would not be.  Records of time
// cells (cellSeconds > 0) are stamped at the cell's start, and each axis
// has a bounds variable ("time_bnds", on the dimension "nv" of 2) with the
// cell's start and end.
//
// Variables: a column is a float variable on the time dimension of the
// group where it first has a value (the first one if it never has), named
// as the column with every character NetCDF names dislike made an
// underscore (CfNames.h), with its data id in heron_id, a long_name, the
// standard_name and cell_methods that fit, its units as UDUNITS-2 reads
// them (CfUnits.h), and _FillValue 1e37.  Every value that is not finite
// or whose magnitude is 1e36 or more is written as the fill value:
// calibrations that carry a missing value through arithmetic (a tilt
// rotating 1e37) give such values, and they are no data.  Records are
// buffered and written in blocks.
#ifndef HERON_TOOLS_CAL_DUMP_NETCDFSINK_H
#define HERON_TOOLS_CAL_DUMP_NETCDFSINK_H

#include <string>
#include <vector>

#include "Table.h"

namespace heron {
// The file's global attributes; empty ones are left out.
struct FileGlobals {
  std::string title, history, source, project, ops;
};
}  // namespace heron

class NetcdfSink : public TableSink {
 public:
  // Creates path (clobbering it).  cellSeconds is the length of the time
  // cells that the records sum up, 0 for samples.  Throws
  // oru::IOException with the library's message, std::runtime_error when
  // the unit database cannot be read.
  NetcdfSink(const std::string& path, const std::vector<Column>& columns, const heron::FileGlobals& globals,
             double cellSeconds);
  ~NetcdfSink() override;
  void row(const Record& r) override;
  // Writes what is buffered and closes the file.
  void finish() override;

 private:
  struct Group {
    int dim = -1, timeVar = -1, boundsVar = -1;
    size_t written = 0;
    std::vector<size_t> cols;  // the columns on this dimension
    std::vector<long long> times;
    std::vector<float> values;  // cols.size() per record
  };
  static const size_t kBlock = 4096;
  void check(int status, const char* what) const;
  void text(int var, const char* name, const std::string& value);
  Group& groupFor(const Record& r);
  void defineAxis(Group& g, int index);  // in define mode
  void defineColumn(size_t c, int index);  // in define mode
  void flush(Group& g);

  std::string path_;
  std::vector<Column> columns_;
  std::vector<std::string> names_;  // the columns' variable names
  std::vector<std::string> units_, standard_;  // their units and standard names
  long long cellMs_;
  int boundsDim_ = -1;
  std::vector<int> colGroup_;  // -1 until the column is placed
  std::vector<int> colVar_;
  std::vector<Group> groups_;
  std::vector<int> groupIndex_;  // record group -> groups_ index, -1 for none yet
  int nc_ = -1;
};

#endif
