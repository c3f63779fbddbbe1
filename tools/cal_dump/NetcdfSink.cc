#include "NetcdfSink.h"

#include <math.h>
#include <netcdf.h>
#include <stdio.h>

#include "CfNames.h"
#include "CfUnits.h"
#include "base/Exception.h"

namespace {

const float kFill = static_cast<float>(kMissing);

float stored(double v) { return isGood(v) ? static_cast<float>(v) : kFill; }

std::vector<std::string> namesOf(const std::vector<Column>& columns) {
  std::vector<std::string> names;
  for (const Column& c : columns) names.push_back(c.name);
  return heron::netcdfNames(names);
}

// The columns' units as written and their standard names, found before
// the first record, so that a warning never breaks a progress line.
void describe(const std::vector<Column>& columns, std::vector<std::string>* units,
              std::vector<std::string>* standard) {
  heron::Units known;
  const auto fits = [&known](const std::string& u, const char* ref, int power) {
    return known.convertible(u, ref, power);
  };
  for (const Column& c : columns) {
    const std::string written = c.units.empty() ? "" : known.written(c.units, c.id.empty() ? c.name : c.id, stderr);
    standard->push_back(heron::standardNameOf(c.id, written, c.cellMethod, fits));
    // A count has no unit in the table; in the file it is a number.
    units->push_back(written.empty() && !standard->back().empty() ? "1" : written);
  }
}

}  // namespace

void NetcdfSink::check(int status, const char* what) const {
  if (status != NC_NOERR) throw oru::IOException(path_.c_str(), what, nc_strerror(status));
}

void NetcdfSink::text(int var, const char* name, const std::string& value) {
  if (!value.empty()) check(nc_put_att_text(nc_, var, name, value.size(), value.c_str()), "nc_put_att");
}

NetcdfSink::NetcdfSink(const std::string& path, const std::vector<Column>& columns,
                       const heron::FileGlobals& globals, double cellSeconds)
    : path_(path),
      columns_(columns),
      names_(namesOf(columns)),
      cellMs_(llround(cellSeconds * 1000.0)),
      colGroup_(columns.size(), -1),
      colVar_(columns.size(), -1) {
  describe(columns, &units_, &standard_);
  check(nc_create(path.c_str(), NC_CLOBBER | NC_NETCDF4, &nc_), "nc_create");
  try {
    text(NC_GLOBAL, "Conventions", "CF-1.8");
    text(NC_GLOBAL, "title", globals.title);
    text(NC_GLOBAL, "history", globals.history);
    text(NC_GLOBAL, "source", globals.source);
    text(NC_GLOBAL, "project", globals.project);
    text(NC_GLOBAL, "ops", globals.ops);
    if (cellMs_ > 0) check(nc_def_dim(nc_, "nv", 2, &boundsDim_), "nc_def_dim");
    check(nc_enddef(nc_), "nc_enddef");
  } catch (...) {
    nc_close(nc_);  // no destructor runs for an object not made
    throw;
  }
}

NetcdfSink::~NetcdfSink() {
  if (nc_ >= 0) nc_close(nc_);
}

void NetcdfSink::defineAxis(Group& g, int index) {
  const std::string name = index == 0 ? "time" : "time_" + std::to_string(index + 1);
  check(nc_def_dim(nc_, name.c_str(), NC_UNLIMITED, &g.dim), "nc_def_dim");
  check(nc_def_var(nc_, name.c_str(), NC_INT64, 1, &g.dim, &g.timeVar), "nc_def_var");
  text(g.timeVar, "units", "milliseconds since 1970-01-01 00:00:00 UTC");
  text(g.timeVar, "standard_name", "time");
  text(g.timeVar, "long_name", "time");
  text(g.timeVar, "calendar", "standard");
  text(g.timeVar, "axis", "T");
  if (cellMs_ <= 0) return;
  const std::string bounds = name + "_bnds";
  const int dims[2] = {g.dim, boundsDim_};
  check(nc_def_var(nc_, bounds.c_str(), NC_INT64, 2, dims, &g.boundsVar), "nc_def_var");
  text(g.timeVar, "bounds", bounds);
  char comment[160];
  snprintf(comment, sizeof comment, "the start of each %g-second interval; %s holds its start and end",
           static_cast<double>(cellMs_) / 1000.0, bounds.c_str());
  text(g.timeVar, "comment", comment);
}

void NetcdfSink::defineColumn(size_t c, int index) {
  Group& g = groups_[static_cast<size_t>(index)];
  colGroup_[c] = index;
  const Column& col = columns_[c];
  int& var = colVar_[c];
  check(nc_def_var(nc_, names_[c].c_str(), NC_FLOAT, 1, &g.dim, &var), "nc_def_var");
  check(nc_def_var_fill(nc_, var, 0, &kFill), "nc_def_var_fill");
  text(var, "long_name", col.longName.empty() ? col.name : col.longName);
  text(var, "standard_name", standard_[c]);
  text(var, "units", units_[c]);
  text(var, "cell_methods", col.cellMethod);
  text(var, "heron_id", col.id);
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
    defineAxis(groups_.back(), index);
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
  g.times.push_back(llround(r.t * 1000.0));
  for (size_t c : g.cols) g.values.push_back(stored(values[c]));
  if (g.times.size() >= kBlock) flush(g);
}

void NetcdfSink::flush(Group& g) {
  const size_t n = g.times.size();
  if (n == 0) return;
  size_t start = g.written, count = n;
  check(nc_put_vara_longlong(nc_, g.timeVar, &start, &count, g.times.data()), "nc_put_vara");
  if (g.boundsVar >= 0) {
    std::vector<long long> bounds;
    for (long long t : g.times) bounds.insert(bounds.end(), {t, t + cellMs_});
    const size_t starts[2] = {start, 0}, counts[2] = {count, 2};
    check(nc_put_vara_longlong(nc_, g.boundsVar, starts, counts, bounds.data()), "nc_put_vara");
  }
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
