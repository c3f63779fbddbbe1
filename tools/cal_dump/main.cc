// cal_dump: prints calibrated variables of the site's raw-data archives, or
// live from its ingest servers.
//
//   cal_dump -s START [-e END] [options] [VARIABLE...]
//   cal_dump -l [options] [VARIABLE...]
//
// The archives that archive_config lists for [START, END) (or, with -l, the
// ingest servers of the modules, through their restarts, until SIGINT,
// SIGTERM or SIGHUP) are read through
// the calibration configuration of $HERON/projects/$PROJECT/$OPS.  Each
// calibrated sample is written in one of FullDataSample's forms (text forms
// one record per line), as CSV or as NetCDF; -a writes interval statistics
// instead, -r the means of a regular time grid, and --plot draws a PNG.
// Without variables, every variable the site's sensors produce.  See
// cal_dump.1.
#include <errno.h>
#include <math.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "CfNames.h"
#include "CsvSink.h"
#include "IntervalStats.h"
#include "LiveStations.h"
#include "NetcdfSink.h"
#include "Options.h"
#include "OutputFile.h"
#include "PlotSink.h"
#include "Progress.h"
#include "RegularGrid.h"
#include "SampleFormSink.h"
#include "SampleScreen.h"
#include "TimeOrder.h"
#include "base/Exception.h"
#include "base/logit.h"
#include "calconfig/CalConfig.h"
#include "calconfig/TaggedSample.h"
#include "samples/RawDataInput.h"

namespace {

// Until the inputs are open (they then catch the signals themselves and
// end the reading with oru::InterruptedException), the first signal asks
// the program to stop, through the inputs' own flag; a second one ends it
// at once, removing the unfinished files.
void onSignal(int) {
  if (RawDataInput::interruptSet) {
    OutputFile::removeAllFromSignal();
    _exit(130);
  }
  RawDataInput::interruptSet = 1;
}

void catchSignals() {
  struct sigaction sa = {};
  sa.sa_handler = onSignal;
  sigemptyset(&sa.sa_mask);
  if (sigaction(SIGINT, &sa, nullptr) != 0 || sigaction(SIGTERM, &sa, nullptr) != 0 ||
      sigaction(SIGHUP, &sa, nullptr) != 0)
    throw oru::IOException("signals", "sigaction", errno);
}

// Registers the variables (all when none is named, or all of module's
// sensors when one is given) and returns their ids.
std::vector<HeronDataId*> registerVariables(CalConfig& cfg, const std::vector<std::string>& names,
                                            const std::string& module) {
  std::vector<HeronDataId*> ids;
  if (names.empty()) {
    const std::vector<std::string> modules = cfg.AllTernNames();
    if (module.empty())
      cfg.PreRegisterAllDataIds();
    else if (std::find(modules.begin(), modules.end(), module) == modules.end())
      throw BadConfigurationException("-m: no sensor of prep.config is on module \"" + module + "\"");
    else
      cfg.RegisterTern(module.c_str());
    for (const auto& cc : cfg.GetChannelConfigs())
      for (int i = 0; i < cc->nsub; ++i)
        if (cc->dids[i] != nullptr && cc->wantedNames.count(cc->dids[i]->name) > 0) ids.push_back(cc->dids[i]);
  }
  for (const std::string& name : names)
    if (HeronDataId* id = cfg.RegisterDataIdByName(name.c_str())) ids.push_back(id);
  return ids;
}

// Fans the records out to several sinks.
class Tee : public TableSink {
 public:
  void add(TableSink* s) { sinks_.push_back(s); }
  void row(const Record& r) override {
    for (TableSink* s : sinks_) s->row(r);
  }
  void finish() override {
    for (TableSink* s : sinks_) s->finish();
  }

 private:
  std::vector<TableSink*> sinks_;
};

// Turns calibrated samples into records of the chosen columns.  Samples of
// one channel share their data-id table (FullDataSample::info), which makes
// them one group with one time axis; each table's columns are looked up once.
class RowMaker {
 public:
  explicit RowMaker(const std::vector<HeronDataId*>& ids) : values_(ids.size(), NAN) {
    for (size_t i = 0; i < ids.size(); ++i) column_.emplace(ids[i], i);
  }
  // The record of s; its group is -1 when s has no value of a chosen column.
  Record make(const FullDataSample& s) {
    for (size_t c : present_) values_[c] = NAN;
    present_.clear();
    auto g = group_.find(s.info);
    if (g == group_.end()) {
      Group made{static_cast<int>(group_.size()), {}};
      for (int i = 0; i < s.size(); ++i) {
        const auto c = s.info[i] != nullptr ? column_.find(s.info[i]) : column_.end();
        made.columns.push_back(c == column_.end() ? -1 : static_cast<long>(c->second));
      }
      g = group_.emplace(s.info, made).first;
    }
    const std::vector<long>& columns = g->second.columns;
    for (size_t i = 0; i < columns.size() && i < static_cast<size_t>(s.size()); ++i)
      if (columns[i] >= 0) {
        values_[static_cast<size_t>(columns[i])] = static_cast<double>(s.data[static_cast<int>(i)]);
        present_.push_back(static_cast<size_t>(columns[i]));
      }
    std::sort(present_.begin(), present_.end());
    return Record{s.ttag, present_.empty() ? -1 : g->second.index, values_.data(), present_.data(), present_.size()};
  }

 private:
  struct Group {
    int index;
    std::vector<long> columns;  // per value of the table: its column, or -1
  };
  std::unordered_map<const HeronDataId*, size_t> column_;
  std::unordered_map<HeronDataId* const*, Group> group_;
  std::vector<double> values_;
  std::vector<size_t> present_;
};

// The site's PROJECT or OPS, or unset when the environment has none.
std::string siteVariable(const char* name, const char* unset) {
  const char* value = getenv(name);
  return value != nullptr ? value : unset;
}

std::string title() {
  return "calibrated variables of project " + siteVariable("PROJECT", "?") + ", " + siteVariable("OPS", "?");
}

// The NetCDF file's globals: the site, and when and how it was made.
heron::FileGlobals fileGlobals(const Options& o) {
  char made[32] = "";
  const time_t now = time(nullptr);
  struct tm utc;
  if (now == static_cast<time_t>(-1) || gmtime_r(&now, &utc) == nullptr ||
      strftime(made, sizeof made, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0)
    throw oru::IOException("the clock", "time", errno);
  return {title(), std::string(made) + ": " + o.commandLine,
          std::string("cal_dump (") + HERON_PACKAGE + ") " + HERON_VERSION, siteVariable("PROJECT", ""),
          siteVariable("OPS", "")};
}

// The site as the plot's title names it: PROJECT/OPS.
std::string siteName() { return siteVariable("PROJECT", "?") + "/" + siteVariable("OPS", "?"); }

// The variables named, and those of the pairs when variables are named.
std::vector<std::string> variableNames(const Options& o) {
  std::vector<std::string> names = o.variables;
  for (const auto& p : o.pairs)
    for (const std::string& n : {p.first, p.second})
      if (!o.variables.empty() && std::find(names.begin(), names.end(), n) == names.end()) names.push_back(n);
  return names;
}

// A column per variable, with its unit.
std::vector<Column> columnsOf(CalConfig& cfg, const std::vector<HeronDataId*>& ids) {
  std::vector<const char*> idNames;
  for (const HeronDataId* id : ids) idNames.push_back(id->name.c_str());
  const std::vector<std::string> units = cfg.GetUnits(idNames);
  std::vector<Column> columns;
  for (size_t i = 0; i < ids.size(); ++i)
    columns.push_back({ids[i]->name, units[i], "", ids[i]->name, heron::longNameOf(ids[i]->name)});
  return columns;
}

// The columns of each pair of variables.
std::vector<std::pair<int, int>> pairColumns(const Options& o, const std::vector<Column>& columns) {
  std::vector<std::pair<int, int>> pairs;
  for (const auto& p : o.pairs) {
    int a = -1, b = -1;
    for (size_t i = 0; i < columns.size(); ++i) {
      if (columns[i].name == p.first) a = static_cast<int>(i);
      if (columns[i].name == p.second) b = static_cast<int>(i);
    }
    if (a < 0 || b < 0) throw BadConfigurationException("Unknown variable: " + (a < 0 ? p.first : p.second));
    pairs.emplace_back(a, b);
  }
  return pairs;
}

// Whether the samples are written in FullDataSample's own forms.
bool directForm(const Options& o) { return o.format != kCsv && o.format != NETCDF; }

// Whether records of statistics or of the grid are written, not the samples.
bool derived(const Options& o) { return o.interval > 0 || o.gridMs > 0; }

// The length of the time cells that the records sum up; 0 for samples.
double cellSeconds(const Options& o) {
  return o.interval > 0 ? o.interval : static_cast<double>(o.gridMs) / 1000.0;
}

// The sinks the records go to; head takes them.  Destroyed before the
// output they write into.
struct Sinks {
  std::unique_ptr<TableSink> table, plot, stats, grid;
  std::unique_ptr<heron::TimeOrder> order;
  Tee tee;
  TableSink* head = &tee;
};

// The sink of the table (none for samples written directly).
TableSink* tableSink(const Options& o, const std::vector<HeronDataId*>& ids, const std::vector<Column>& written,
                     const std::vector<std::pair<int, int>>& pairs, OutputFile& out) {
  if (o.format == kCsv) return new CsvSink(out.fp(), written, o.live);
  if (o.format == NETCDF) return new NetcdfSink(out.tempPath(), written, fileGlobals(o), cellSeconds(o));
  if (!derived(o)) return nullptr;
  // Each statistic carries its variable's index; a covariance its first one's.
  std::vector<short> indices;
  for (const HeronDataId* id : ids) indices.insert(indices.end(), o.interval > 0 ? 3 : 1, id->Index());
  for (const auto& p : pairs) indices.push_back(ids[static_cast<size_t>(p.first)]->Index());
  return new SampleFormSink(out.fp(), static_cast<outputFormat>(o.format), written, indices, o.live);
}

// The columns written: the statistics', the grid's means or the values.
std::vector<Column> writtenColumns(const Options& o, const std::vector<Column>& columns,
                                   const std::vector<std::pair<int, int>>& pairs) {
  if (o.interval > 0) return IntervalStats::statsColumns(columns, pairs, o.interval);
  std::vector<Column> written = columns;
  if (o.gridMs <= 0) return written;
  // A step's mean is described as an interval's, under the variable's name.
  const std::vector<Column> means = IntervalStats::statsColumns(columns, {}, cellSeconds(o));
  for (size_t c = 0; c < written.size(); ++c) {
    written[c].cellMethod = means[3 * c].cellMethod;
    written[c].longName = means[3 * c].longName;
  }
  return written;
}

// The table's sink, the plot's, and the interval statistics and the grid
// before them, which take the records in time order: the lagged values are
// held holdSeconds to be put back in place.
void buildSinks(const Options& o, const std::vector<HeronDataId*>& ids, const std::vector<Column>& columns,
                const std::vector<std::pair<int, int>>& pairs, double holdSeconds, OutputFile& out, Sinks* sinks) {
  const std::vector<Column> written = writtenColumns(o, columns, pairs);
  sinks->table.reset(tableSink(o, ids, written, pairs, out));
  if (sinks->table) sinks->tee.add(sinks->table.get());
  if (!o.plot.empty()) {
    std::vector<size_t> drawn;  // the values, or their interval means
    for (size_t c = 0; c < columns.size(); ++c) drawn.push_back(o.interval > 0 ? 3 * c : c);
    sinks->plot.reset(new PlotSink(o.plot, o.plotWidth, o.plotHeight, written, drawn, siteName()));
    sinks->tee.add(sinks->plot.get());
  }
  if (o.gridMs > 0) {
    auto grid = new heron::RegularGrid(o.gridMs, written.size(), &sinks->tee);
    sinks->grid.reset(grid);
    if (!o.live) grid->cover(o.start, o.end);
    sinks->head = grid;
  }
  if (o.interval > 0) {
    sinks->stats.reset(new IntervalStats(o.interval, columns.size(), pairs, sinks->head));
    sinks->head = sinks->stats.get();
  }
  if (derived(o)) {
    sinks->order.reset(new heron::TimeOrder(holdSeconds, columns.size(), sinks->head));
    sinks->head = sinks->order.get();
  }
}

// Writes s in the chosen one of FullDataSample's forms.
void writeDirect(const FullDataSample& s, const Options& o, FILE* fp) {
  s.Output(fp, static_cast<outputFormat>(o.format), nullptr);
  if (o.format != BIN && o.format != BINCOLUMN) putc('\n', fp);
  if (o.live) fflush(fp);
}

// The next calibrated samples into done.  Live, the stations' connections
// that end or fail are the stations' to handle, and a read that has nothing
// now waits for data up to a second.
void nextSamples(CalConfig& cfg, SampleStream<TaggedSampleBase>& stream, DPlist<TaggedSampleBase>& done,
                 heron::LiveStations* live) {
  if (live == nullptr) {
    cfg.nextCalibrated(stream, done);
    return;
  }
  try {
    if (cfg.nextCalibrated(stream, done) > 0)
      live->tick();
    else
      live->service(1000);
  } catch (const oru::EOFException&) {
    live->service(1000);  // every station is down
  } catch (const oru::IOException& e) {
    live->service(0, e.toString());
  }
}

// Reads the calibrated samples into out and head until the archives end or
// a signal stops the reading; counts the records written.
void readAll(CalConfig& cfg, const Options& o, const std::vector<HeronDataId*>& ids, OutputFile& out,
             TableSink* head, heron::SampleScreen& screen, heron::LiveStations* live, long* records) {
  const bool direct = directForm(o) && !derived(o);
  RowMaker rows(ids);
  heron::Progress progress(!o.live && isatty(2), o.start, o.end);
  SampleStream<TaggedSampleBase> stream;
  long samples = 0;
  try {
    while (!RawDataInput::interruptSet) {
      DPlist<TaggedSampleBase> done;
      nextSamples(cfg, stream, done, live);
      for (DPlist_iter<TaggedSampleBase> it = done.begin(); it(); ++it) {
        FullDataSample& s = *static_cast<FullDataSample*>(*it);
        progress.update(++samples, s.ttag);
        if (!o.live && (s.ttag < o.start || s.ttag >= o.end)) continue;
        screen.apply(s);
        const Record record = rows.make(s);
        if (direct) {
          writeDirect(s, o, out.fp());
          ++*records;
        }
        if (record.group < 0) continue;
        if (!direct) ++*records;
        head->row(record);
      }
      if (ferror(out.fp())) throw oru::IOException(o.output.empty() ? "stdout" : o.output.c_str(), "write", errno);
    }
  } catch (const oru::EOFException&) {
    // every archive has ended
  } catch (const oru::InterruptedException&) {
    // the inputs' own handler caught SIGINT, SIGTERM or SIGHUP
  }
}

// Finishes the output after the reading; returns the exit status.
int conclude(const Options& o, long records, TableSink* head, OutputFile& out) {
  if (RawDataInput::interruptSet && !o.live) {
    fprintf(stderr, "cal_dump: interrupted; %s\n", o.output.empty() ? "output incomplete" : "no file written");
    return 130;
  }
  if (records == 0 && !o.live) {
    fprintf(stderr, "cal_dump: no samples between %s and %s\n", isoTime(o.start).c_str(), isoTime(o.end).c_str());
    return 1;
  }
  head->finish();
  out.commit();
  return 0;
}

// The ingest server named by INGEST_SERVER (default "heron") of every
// module a wanted configuration reads, connected as far as they answer.
std::unique_ptr<heron::LiveStations> liveStations(CalConfig& cfg) {
  const char* server = getenv("INGEST_SERVER");
  std::vector<heron::LiveStations::Station> stations;
  for (size_t t = 0; t < cfg.sidMatrix.size(); ++t)
    if (cfg.ternWanted(static_cast<int>(t))) stations.push_back({cfg.TernInfo(static_cast<int>(t)).name, static_cast<int>(t)});
  if (stations.empty()) throw BadConfigurationException("no module of the site reads the wanted variables");
  std::unique_ptr<heron::LiveStations> live(
      new heron::LiveStations(cfg.inputs(), server ? server : "heron", cfg.ingestChannels, stations));
  live->start();
  return live;
}

int run(const Options& o) {
  CalConfig cfg;
  const std::vector<HeronDataId*> ids = registerVariables(cfg, variableNames(o), o.module);
  cfg.InitializeFunctions();
  const std::vector<Column> columns = columnsOf(cfg, ids);
  const std::vector<std::pair<int, int>> pairs = pairColumns(o, columns);

  // Output, then the sinks that write into it (destroyed first).
  OutputFile out(o.output);
  Sinks sinks;
  // Lags move values back by up to their spread; a second more covers a lag
  // file's changes beyond the lag ranges.
  const double hold = std::max(0.0, static_cast<double>(cfg.lagDiff)) + 1.0;
  buildSinks(o, ids, columns, pairs, hold, out, &sinks);
  heron::SampleScreen screen(cfg, o.limits);

  std::unique_ptr<heron::LiveStations> live;
  if (o.live)
    live = liveStations(cfg);
  else
    cfg.openInputs(o.start, o.end);
  long records = 0;
  readAll(cfg, o, ids, out, sinks.head, screen, live.get(), &records);
  const std::string limits = screen.summary("cal_dump");
  if (!limits.empty()) fprintf(stderr, "%s\n", limits.c_str());
  if (sinks.order && sinks.order->late() > 0)
    fprintf(stderr, "cal_dump: %ld values came more than %g s after newer ones and were left out\n",
            sinks.order->late(), hold);
  const int status = conclude(o, records, sinks.head, out);
  if (live) fprintf(stderr, "cal_dump: %ld records, %ld reconnections\n", records, live->reconnections());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  const int status = readOptions(argc, argv, &o);
  if (status >= 0) return status;
  heron::showInformation(o.verbose);
  o.commandLine = commandLine(argc, argv);
  static char outbuf[1 << 16];
  setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);
  try {
    catchSignals();
    return run(o);
  } catch (const oru::Exception& e) {
    fflush(stdout);
    fprintf(stderr, "cal_dump: %s\n", e.toString().c_str());
  } catch (const std::exception& e) {
    fflush(stdout);
    fprintf(stderr, "cal_dump: %s\n", e.what());
  }
  return 1;
}
