// cal_dump: prints calibrated variables of the site's raw-data archives.
//
//   cal_dump -s START [-e END] [-F FORMAT] [-z ZONE] [VARIABLE...]
//
// The archives that archive_config lists for [START, END) are read through
// the calibration configuration of $HERON/projects/$PROJECT/$OPS, and each
// calibrated sample in the span is written in one of FullDataSample's
// forms (text forms one record per line) or as CSV.  Without variables,
// every variable the site's sensors produce.  See cal_dump.1.
#include <errno.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <map>
#include <string>
#include <vector>

#include "base/Exception.h"
#include "calconfig/CalConfig.h"
#include "calconfig/TaggedSample.h"
#include "time/UTime.h"

namespace {

const char kUsage[] =
    "Usage: cal_dump -s start_time [-e end_time] [-F format] [-z zone] [VARIABLE...]\n"
    "  -s time  start of the span, e.g. \"2026 nov 21 12:00\"\n"
    "  -e time  end of the span, not included (default: a day after the start)\n"
    "  -F fmt   HMS, MSEC, HOUR, BIN, BINCOLUMN, ASCIICOLUMN or CSV (default MSEC)\n"
    "  -z zone  time zone of the times given (default UTC)\n"
    "  -h, --help, --version\n"
    "VARIABLE is a data-id name of the site, e.g. u.wind; without any, all\n"
    "that the site's sensors produce.  The site is $HERON/projects/$PROJECT/$OPS.\n";

const int kCsv = -1;        // the CSV form, beside outputFormat's

struct Options {
  const char* startText = nullptr;
  const char* endText = nullptr;
  const char* zone = nullptr;
  int format = MSEC;
};

int readFormat(const char* name) {
  static const struct {
    const char* name;
    int format;
  } kFormats[] = {{"HMS", HMS}, {"MSEC", MSEC},           {"HOUR", HOUR}, {"BIN", BIN},
                  {"BINCOLUMN", BINCOLUMN}, {"ASCIICOLUMN", ASCIICOLUMN}, {"CSV", kCsv}};
  for (const auto& f : kFormats)
    if (strcmp(name, f.name) == 0) return f.format;
  return -2;
}

// "YYYY-MM-DDTHH:MM:SS.mmmZ" of t, rounded to the millisecond.
std::string isoTime(double t) {
  const long long ms = llround(t * 1000.0);
  const long long msOfSecond = ((ms % 1000) + 1000) % 1000;
  const time_t secs = static_cast<time_t>((ms - msOfSecond) / 1000);
  struct tm tm;
  char text[48];
  if (gmtime_r(&secs, &tm) == nullptr) return "?";
  const size_t n = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
  snprintf(text + n, sizeof text - n, ".%03lldZ", msOfSecond);
  return text;
}

// A CSV field, quoted when it holds a separator, quote or line end.
std::string csvField(const std::string& s) {
  if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
  std::string q = "\"";
  for (char c : s) q += c == '"' ? std::string("\"\"") : std::string(1, c);
  return q + "\"";
}

// Reads the options into o; returns -1 to go on, else the exit status.
int readOptions(int argc, char** argv, Options* o) {
  static const struct option kLong[] = {
      {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}};
  int opt;
  while ((opt = getopt_long(argc, argv, "s:e:F:z:h", kLong, nullptr)) != -1) {
    switch (opt) {
      case 's': o->startText = optarg; break;
      case 'e': o->endText = optarg; break;
      case 'z': o->zone = optarg; break;
      case 'F':
        o->format = readFormat(optarg);
        if (o->format == -2) {
          fprintf(stderr, "cal_dump: unknown format \"%s\" (HMS, MSEC, HOUR, BIN, BINCOLUMN, ASCIICOLUMN or CSV)\n",
                  optarg);
          return 1;
        }
        break;
      case 'h': fputs(kUsage, stdout); return 0;
      case 'V': printf("cal_dump (%s) %s\n", HERON_PACKAGE, HERON_VERSION); return 0;
      default: fputs(kUsage, stderr); return 1;
    }
  }
  if (o->startText == nullptr) {
    fputs(kUsage, stderr);
    return 1;
  }
  return -1;
}

bool readTime(const char* text, int local, double* out) {
  UTime t(local, text);
  if (t.val() == UTime::BIGBANG) return false;
  *out = t.val();
  return true;
}

// Writes calibrated samples in the chosen form; the CSV form has a column
// per wanted variable, in the order given.
class Writer {
 public:
  Writer(int format, const std::vector<HeronDataId*>& ids) : _format(format), _ids(ids) {
    for (size_t i = 0; i < ids.size(); ++i) _column[ids[i]] = i;
  }

  void header(const std::vector<std::string>& units) {
    if (_format != kCsv) return;
    std::string line = "time";
    for (size_t i = 0; i < _ids.size(); ++i)
      line += "," + csvField(units[i].empty() ? _ids[i]->name : _ids[i]->name + " (" + units[i] + ")");
    puts(line.c_str());
  }

  // Returns whether the sample gave a record.
  bool write(const FullDataSample& s) {
    if (_format != kCsv) {
      s.Output(stdout, static_cast<outputFormat>(_format), nullptr);
      if (_format != BIN && _format != BINCOLUMN) putchar('\n');
      return true;
    }
    std::vector<std::string> cells(_ids.size());
    bool any = false;
    for (int i = 0; i < s.size(); ++i) {
      const auto c = s.info[i] != nullptr ? _column.find(s.info[i]) : _column.end();
      if (c == _column.end()) continue;  // a value nobody asked for
      char text[32];
      snprintf(text, sizeof text, "%.6g", static_cast<double>(s.data[i]));
      cells[c->second] = text;
      any = true;
    }
    if (!any) return false;
    std::string line = isoTime(s.ttag);
    for (const std::string& cell : cells) line += "," + cell;
    puts(line.c_str());
    return true;
  }

 private:
  int _format;
  std::vector<HeronDataId*> _ids;
  std::map<const HeronDataId*, size_t> _column;
};

// Registers the variables (all when none is named) and returns their ids.
std::vector<HeronDataId*> registerVariables(CalConfig& cfg, char** names, int n) {
  std::vector<HeronDataId*> ids;
  if (n == 0) {
    cfg.PreRegisterAllDataIds();
    for (const auto& cc : cfg.GetChannelConfigs())
      for (int i = 0; i < cc->nsub; ++i)
        if (cc->dids[i] != nullptr && cc->wantedNames.count(cc->dids[i]->name) > 0) ids.push_back(cc->dids[i]);
  }
  for (int i = 0; i < n; ++i)
    if (HeronDataId* id = cfg.RegisterDataIdByName(names[i])) ids.push_back(id);
  return ids;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  const int status = readOptions(argc, argv, &o);
  if (status >= 0) return status;
  UTime::setTZ(o.zone);
  const int local = o.zone != nullptr && o.zone[0] != '\0';
  double start, end;
  if (!readTime(o.startText, local, &start)) {
    fprintf(stderr, "cal_dump: cannot read the start time \"%s\"\n", o.startText);
    return 1;
  }
  if (o.endText == nullptr) {
    end = start + 86400.0;
  } else if (!readTime(o.endText, local, &end)) {
    fprintf(stderr, "cal_dump: cannot read the end time \"%s\"\n", o.endText);
    return 1;
  }
  if (!(end > start)) {
    fprintf(stderr, "cal_dump: the end time \"%s\" is not after the start time \"%s\"\n", o.endText, o.startText);
    return 1;
  }

  static char outbuf[1 << 16];
  setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);

  long written = 0;
  int result = 0;
  try {
    CalConfig cfg;
    const std::vector<HeronDataId*> ids = registerVariables(cfg, argv + optind, argc - optind);
    cfg.InitializeFunctions();
    std::vector<const char*> names;
    for (const HeronDataId* id : ids) names.push_back(id->name.c_str());
    Writer writer(o.format, ids);
    writer.header(cfg.GetUnits(names));
    cfg.openInputs(start, end);
    SampleStream<TaggedSampleBase> stream;
    try {
      for (;;) {
        DPlist<TaggedSampleBase> done;
        cfg.nextCalibrated(stream, done);
        for (DPlist_iter<TaggedSampleBase> it = done.begin(); it(); ++it) {
          const FullDataSample& s = *static_cast<FullDataSample*>(*it);
          if (s.ttag >= start && s.ttag < end && writer.write(s)) ++written;
        }
        if (ferror(stdout)) throw oru::IOException("stdout", "write", errno);
      }
    } catch (const oru::EOFException&) {
      // All archives have ended.
    }
  } catch (const oru::Exception& e) {
    fflush(stdout);
    fprintf(stderr, "cal_dump: %s\n", e.toString().c_str());
    result = 1;
  }
  if ((fflush(stdout) != 0 || ferror(stdout)) && result == 0) {
    fprintf(stderr, "cal_dump: stdout: write: %s\n", strerror(errno));
    result = 1;
  }
  if (result == 0 && written == 0) {
    fprintf(stderr, "cal_dump: no samples between %s and %s\n", isoTime(start).c_str(), isoTime(end).c_str());
    result = 1;
  }
  return result;
}
