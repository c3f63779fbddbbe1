// cal_dump's command line.
#ifndef HERON_TOOLS_CAL_DUMP_OPTIONS_H
#define HERON_TOOLS_CAL_DUMP_OPTIONS_H

#include <string>
#include <utility>
#include <vector>

const int kCsv = -1;  // the CSV form, beside FullDataSample's outputFormat (NETCDF included)

struct Options {
  bool live = false;
  double start = 0, end = 0;  // the span, when not live
  int format = 2;             // MSEC
  std::string output;         // empty: standard output
  double interval = 0;        // -a: statistics over intervals of this many seconds
  std::vector<std::pair<std::string, std::string>> pairs;  // -c
  std::string plot;
  int plotWidth = 1000, plotHeight = 0;  // 0: 250 pixels per panel
  std::vector<std::string> variables;
  bool verbose = false;  // -v: the library's information lines too
  std::string commandLine;  // as typed (main sets it with commandLine())
};

// Reads the command line into o; returns -1 to go on, else the exit status
// (after --help, --version or an error, reported on standard error).
int readOptions(int argc, char** argv, Options* o);

// The words of the command line, each quoted when a shell would split or
// expand it, so that the line can be run again.
std::string commandLine(int argc, char** argv);

#endif
