// The table as CSV: a header line "time,<name> (<units>),...", then one line
// per record, the time as "YYYY-MM-DDTHH:MM:SS.mmmZ" and each value with six
// significant digits; an empty field where a record has no value or a
// missing one (see Table.h).
#ifndef HERON_TOOLS_CAL_DUMP_CSVSINK_H
#define HERON_TOOLS_CAL_DUMP_CSVSINK_H

#include <stdio.h>

#include <string>
#include <vector>

#include "Table.h"

class CsvSink : public TableSink {
 public:
  // Writes the header; flushEach makes every line leave at once (live).
  CsvSink(FILE* fp, const std::vector<Column>& columns, bool flushEach);
  void row(const Record& r) override;
  void finish() override;

 private:
  FILE* fp_;
  size_t ncols_;
  bool flushEach_;
  long long second_ = -1;   // milliseconds since 1970 of the second secondText_ names
  std::string secondText_;  // "YYYY-MM-DDTHH:MM:SS."
};

// "YYYY-MM-DDTHH:MM:SS.mmmZ" of t (seconds since 1970 UTC), to the millisecond.
std::string isoTime(double t);

#endif
