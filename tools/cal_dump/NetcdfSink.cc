#include "NetcdfSink.h"

#include <netcdf.h>

#include "base/Exception.h"

namespace {
const float kFill = static_cast<float>(kMissing);
}

void NetcdfSink::check(int status, const char* what) const {
  if (status != NC_NOERR) throw oru::IOException(path_.c_str(), what, nc_strerror(status));
}

NetcdfSink::NetcdfSink(const std::string& path, const std::vector<Column>& columns, const std::string& title)
    : path_(path), columns_(columns), colGroup_(columns.size(), -1), colVar_(columns.size(), -1) {
  check(nc_create(path.c_str(), NC_CLOBBER | NC_NETCDF4, &nc_), "nc_create");
  const std::string conventions = "CF-1.8";
  check(nc_put_att_text(nc_, NC_GLOBAL, "Conventions", conventions.size(), conventions.c_str()), "nc_put_att");
  check(nc_put_att_text(nc_, NC_GLOBAL, "title", title.size(), title.c_str()), "nc_put_att");
  check(nc_enddef(nc_), "nc_enddef");
}

NetcdfSink::~NetcdfSink() {
  if (nc_ >= 0) nc_close(nc_);
}

void NetcdfSink::defineColumn(size_t c, int index) {
  Group& g = groups_[static_cast<size_t>(index)];
  colGroup_[c] = index;
  const Column& col = columns_[c];
  check(nc_def_var(nc_, col.name.c_str(), NC_FLOAT, 1, &g.dim, &colVar_[c]), "nc_def_var");
  check(nc_def_var_fill(nc_, colVar_[c], 0, &kFill), "nc_def_var_fill");
  check(nc_put_att_text(nc_, colVar_[c], "long_name", col.name.size(), col.name.c_str()), "nc_put_att");
  if (!col.units.empty())
    check(nc_put_att_text(nc_, colVar_[c], "units", col.units.size(), col.units.c_str()), "nc_put_att");
  g.cols.push_back(c);
}

NetcdfSink::Group& NetcdfSink::groupFor(const Record& r) {
  const int group = r.group;
  if (group >= static_cast<int>(groupIndex_.size())) groupIndex_.resize(static_cast<size_t>(group) + 1, -1);
  int& index = groupIndex_[static_cast<size_t>(group)];
  bool fresh = index < 0;
  for (size_t k = 0; k < r.npresent && !fresh; ++k) fresh = colGroup_[r.present[k]] < 0;
  if (!fresh) return groups_[static_cast<size_t>(index)];

  // A new time axis, or new columns on this one: back to define mode.
  check(nc_redef(nc_), "nc_redef");
  if (index < 0) {
    index = static_cast<int>(groups_.size());
    groups_.emplace_back();
    Group& g = groups_.back();
    const std::string name = index == 0 ? "time" : "time_" + std::to_string(index + 1);
    check(nc_def_dim(nc_, name.c_str(), NC_UNLIMITED, &g.dim), "nc_def_dim");
    check(nc_def_var(nc_, name.c_str(), NC_DOUBLE, 1, &g.dim, &g.timeVar), "nc_def_var");
    const std::string units = "seconds since 1970-01-01 00:00:00 UTC";
    check(nc_put_att_text(nc_, g.timeVar, "units", units.size(), units.c_str()), "nc_put_att");
    check(nc_put_att_text(nc_, g.timeVar, "standard_name", 4, "time"), "nc_put_att");
    check(nc_put_att_text(nc_, g.timeVar, "calendar", 9, "gregorian"), "nc_put_att");
    check(nc_put_att_text(nc_, g.timeVar, "axis", 1, "T"), "nc_put_att");
  }
  Group& g = groups_[static_cast<size_t>(index)];
  const size_t before = g.cols.size();
  for (size_t k = 0; k < r.npresent; ++k)
    if (colGroup_[r.present[k]] < 0) defineColumn(r.present[k], index);
  check(nc_enddef(nc_), "nc_enddef");
  // Buffered records of this group hold no value for the new columns.
  if (g.cols.size() > before) {
    const size_t n = g.times.size(), oldWidth = before, width = g.cols.size();
    std::vector<float> wider(n * width, kFill);
    for (size_t r = 0; r < n; ++r)
      for (size_t k = 0; k < oldWidth; ++k) wider[r * width + k] = g.values[r * oldWidth + k];
    g.values.swap(wider);
  }
  return g;
}

void NetcdfSink::row(const Record& r) {
  const double* values = r.values;
  Group& g = groupFor(r);
  g.times.push_back(r.t);
  for (size_t c : g.cols) g.values.push_back(std::isnan(values[c]) ? kFill : static_cast<float>(values[c]));
  if (g.times.size() >= kBlock) flush(g);
}

void NetcdfSink::flush(Group& g) {
  const size_t n = g.times.size();
  if (n == 0) return;
  size_t start = g.written, count = n;
  check(nc_put_vara_double(nc_, g.timeVar, &start, &count, g.times.data()), "nc_put_vara");
  std::vector<float> column(n);
  for (size_t k = 0; k < g.cols.size(); ++k) {
    for (size_t r = 0; r < n; ++r) column[r] = g.values[r * g.cols.size() + k];
    check(nc_put_vara_float(nc_, colVar_[g.cols[k]], &start, &count, column.data()), "nc_put_vara");
  }
  g.written += n;
  g.times.clear();
  g.values.clear();
}

void NetcdfSink::finish() {
  for (Group& g : groups_) flush(g);
  // A column that never had a value is still in the file, all fill values,
  // on the first time axis.
  if (!groups_.empty()) {
    check(nc_redef(nc_), "nc_redef");
    for (size_t c = 0; c < columns_.size(); ++c)
      if (colGroup_[c] < 0) defineColumn(c, 0);
    check(nc_enddef(nc_), "nc_enddef");
  }
  const int nc = nc_;
  nc_ = -1;
  check(nc_close(nc), "nc_close");
}
