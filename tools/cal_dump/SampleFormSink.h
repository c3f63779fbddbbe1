// Records written in one of FullDataSample's own forms (HMS, MSEC, HOUR,
// BIN, BINCOLUMN, ASCIICOLUMN), for the records that are not calibrated
// samples: the interval statistics and the regular grid.  Each record
// becomes one sample of its columns' values as floats, an absent or missing
// value (see Table.h) written as the missing value 1e37; in BIN
// each value carries the data-id index given for its column.  Text forms
// end each record with a line end.
#ifndef HERON_TOOLS_CAL_DUMP_SAMPLEFORMSINK_H
#define HERON_TOOLS_CAL_DUMP_SAMPLEFORMSINK_H

#include <stdio.h>

#include <vector>

#include "Table.h"
#include "calconfig/TaggedSample.h"

class SampleFormSink : public TableSink {
 public:
  SampleFormSink(FILE* fp, outputFormat fmt, const std::vector<Column>& columns, const std::vector<short>& indices,
                 bool flushEach);
  void row(const Record& r) override;
  void finish() override {}

 private:
  FILE* fp_;
  outputFormat fmt_;
  bool flushEach_;
  std::vector<HeronDataId> ids_;
  std::vector<HeronDataId*> idPointers_;
  std::vector<float> values_;
};

#endif
