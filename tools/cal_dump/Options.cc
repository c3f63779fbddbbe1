#include "Options.h"

#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "calconfig/TaggedSample.h"
#include "time/StrictTime.h"
#include "time/UTime.h"

namespace {

const char kUsage[] =
    "Usage: cal_dump -s start_time [-e end_time] [options] [VARIABLE...]\n"
    "       cal_dump -l [options] [VARIABLE...]\n"
    "  -s time  start of the span, e.g. \"2026 nov 21 12:00\"\n"
    "  -e time  end of the span, not included (default: a day after the start)\n"
    "  -l       live from the modules' ingest servers ($INGEST_SERVER) until\n"
    "           interrupted\n"
    "  -F fmt   HMS, MSEC, HOUR, BIN, BINCOLUMN, ASCIICOLUMN, CSV or NETCDF\n"
    "           (default MSEC)\n"
    "  -o file  write to file (needed for NETCDF); it appears only when complete\n"
    "  -a secs  mean, variance and count of every variable over intervals of\n"
    "           secs seconds\n"
    "  -c a:b[,c...]  with -a, also the covariance of a with b (and with c...)\n"
    "  --plot file.png        draw the variables (with -a their means) against\n"
    "                         time, one panel per unit\n"
    "  --plot-size WIDTHxHEIGHT  of the image in pixels (default 1000 wide,\n"
    "                         250 high per panel)\n"
    "  -z zone  time zone of the times given (default UTC)\n"
    "  -v, --verbose  also the library's information lines (files opened,\n"
    "           signals caught)\n"
    "  -h, --help, --version\n"
    "VARIABLE is a data-id name of the site, e.g. u.wind; without any, all\n"
    "that the site's sensors produce.  The site is $HERON/projects/$PROJECT/$OPS.\n";

int readFormat(const char* name) {
  static const struct {
    const char* name;
    int format;
  } kFormats[] = {{"HMS", HMS},
                  {"MSEC", MSEC},
                  {"HOUR", HOUR},
                  {"BIN", BIN},
                  {"BINCOLUMN", BINCOLUMN},
                  {"ASCIICOLUMN", ASCIICOLUMN},
                  {"CSV", kCsv},
                  {"NETCDF", NETCDF}};
  for (const auto& f : kFormats)
    if (strcmp(name, f.name) == 0) return f.format;
  return -2;
}

// The bounds of the numbers on the command line.  An interval shorter than
// a millisecond has more intervals in a span than a count holds; one longer
// than a leap year is no statistic of a field season.  Times are 1970 to
// 2100, where the archives' file names and the output's dates are read
// and written.
const double kMinInterval = 0.001, kMaxInterval = 366 * 86400.0;
const double kLastTime = 4102444800.0;  // 2100-01-01T00:00:00Z

// 1 with the message when the text is no time, 0 when it is one outside
// 1970 to 2100, -1 when it is read into *out.
int readTime(const char* text, int local, double* out) {
  double t;
  if (!heron::parseTimeStrict(text, local, &t)) {
    fprintf(stderr, "%s\n", heron::refusedTime("cal_dump", text).c_str());
    return 1;
  }
  if (!(t >= 0 && t < kLastTime)) return 0;
  *out = t;
  return -1;
}

int fail(const char* what, const char* text) {
  fprintf(stderr, "cal_dump: %s \"%s\"\n", what, text);
  return 1;
}

}  // namespace

namespace {
// What the options say together: one source, a file for NETCDF, -a for
// -c, and the span.
int checkAll(Options* o, const char* startText, const char* endText, const char* zone) {
  if (o->live == (startText != nullptr)) {
    fputs(o->live ? "cal_dump: -l reads live: it takes no -s\n" : kUsage, stderr);
    return 1;
  }
  if (o->format == NETCDF && o->output.empty()) {
    fputs("cal_dump: NETCDF is written to a file: give -o FILE\n", stderr);
    return 1;
  }
  if (!o->pairs.empty() && o->interval <= 0) {
    fputs("cal_dump: covariances (-c) are statistics: give -a SECONDS\n", stderr);
    return 1;
  }
  if (o->live) return -1;
  UTime::setTZ(zone);
  const int local = zone != nullptr && zone[0] != '\0';
  int read = readTime(startText, local, &o->start);
  if (read >= 0) return read == 1 ? 1 : fail("-s: the start time is not a time from 1970 to 2100:", startText);
  if (endText == nullptr)
    o->end = o->start + 86400.0;
  else if ((read = readTime(endText, local, &o->end)) >= 0)
    return read == 1 ? 1 : fail("-e: the end time is not a time from 1970 to 2100:", endText);
  if (!(o->end > o->start)) {
    fprintf(stderr, "cal_dump: the end time \"%s\" is not after the start time \"%s\"\n", endText, startText);
    return 1;
  }
  return -1;
}
}  // namespace

int readOptions(int argc, char** argv, Options* o) {
  enum { kPlot = 256, kPlotSize, kVersion };
  static const struct option kLong[] = {{"help", no_argument, nullptr, 'h'}, {"verbose", no_argument, nullptr, 'v'},
                                        {"version", no_argument, nullptr, kVersion},
                                        {"plot", required_argument, nullptr, kPlot},
                                        {"plot-size", required_argument, nullptr, kPlotSize},
                                        {nullptr, 0, nullptr, 0}};
  const char *startText = nullptr, *endText = nullptr, *zone = nullptr;
  char* rest;
  for (int opt; (opt = getopt_long(argc, argv, "s:e:F:z:lo:a:c:hv", kLong, nullptr)) != -1;) {
    switch (opt) {
      case 's': startText = optarg; break;
      case 'e': endText = optarg; break;
      case 'z': zone = optarg; break;
      case 'l': o->live = true; break;
      case 'v': o->verbose = true; break;
      case 'o': o->output = optarg; break;
      case 'F':
        o->format = readFormat(optarg);
        if (o->format == -2) {
          fprintf(stderr, "cal_dump: unknown format \"%s\" (HMS, MSEC, HOUR, BIN, BINCOLUMN, ASCIICOLUMN, CSV or NETCDF)\n",
                  optarg);
          return 1;
        }
        break;
      case 'a':
        o->interval = strtod(optarg, &rest);
        if (*rest != '\0' || !(o->interval >= kMinInterval && o->interval <= kMaxInterval))
          return fail("-a: the interval is not a number of seconds from 0.001 to 31622400 (366 days):", optarg);
        break;
      case 'c': {
        const char* colon = strchr(optarg, ':');
        if (colon == nullptr || colon == optarg || colon[1] == '\0')
          return fail("a covariance is asked for as a:b[,c...], not", optarg);
        const std::string first(optarg, static_cast<size_t>(colon - optarg));
        for (const char* p = colon + 1; *p != '\0';) {
          const char* comma = strchr(p, ',');
          const std::string second = comma ? std::string(p, comma) : std::string(p);
          if (second.empty()) return fail("a covariance is asked for as a:b[,c...], not", optarg);
          o->pairs.emplace_back(first, second);
          p = comma ? comma + 1 : p + second.size();
        }
        break;
      }
      case kPlot: o->plot = optarg; break;
      case kPlotSize: {
        char extra;
        if (strspn(optarg, "0123456789x") != strlen(optarg) || strlen(optarg) > 11 ||
            sscanf(optarg, "%dx%d%c", &o->plotWidth, &o->plotHeight, &extra) != 2 || o->plotWidth < 64 ||
            o->plotHeight < 64 || o->plotWidth > 20000 || o->plotHeight > 20000)
          return fail("--plot-size: the plot size is WIDTHxHEIGHT in pixels, 64 to 20000, not", optarg);
        break;
      }
      case 'h': fputs(kUsage, stdout); return 0;
      case kVersion: printf("cal_dump (%s) %s\n", HERON_PACKAGE, HERON_VERSION); return 0;
      default: fputs(kUsage, stderr); return 1;
    }
  }
  for (int i = optind; i < argc; ++i) o->variables.push_back(argv[i]);
  return checkAll(o, startText, endText, zone);
}

std::string commandLine(int argc, char** argv) {
  std::string line;
  for (int i = 0; i < argc; ++i) {
    const std::string word = argv[i];
    if (i > 0) line += ' ';
    if (!word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                                "_-+=.,:/@%") == std::string::npos) {
      line += word;
      continue;
    }
    line += '\'';
    for (char c : word) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
    line += '\'';
  }
  return line;
}
