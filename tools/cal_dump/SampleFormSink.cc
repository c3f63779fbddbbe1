#include "SampleFormSink.h"

SampleFormSink::SampleFormSink(FILE* fp, outputFormat fmt, const std::vector<Column>& columns,
                               const std::vector<short>& indices, bool flushEach)
    : fp_(fp), fmt_(fmt), flushEach_(flushEach), values_(columns.size()) {
  for (size_t c = 0; c < columns.size(); ++c)
    ids_.push_back(HeronDataId{columns[c].name, indices[c], nullptr, columns[c].units, 0.0});
  for (HeronDataId& id : ids_) idPointers_.push_back(&id);
}

void SampleFormSink::row(const Record& r) {
  for (size_t c = 0; c < values_.size(); ++c)
    values_[c] = isGood(r.values[c]) ? static_cast<float>(r.values[c]) : static_cast<float>(kMissing);
  const FullDataSample s(r.t, values_.data(), static_cast<int>(values_.size()), idPointers_.data());
  s.Output(fp_, fmt_, nullptr);
  if (fmt_ != BIN && fmt_ != BINCOLUMN) putc('\n', fp_);
  if (flushEach_) fflush(fp_);
}
