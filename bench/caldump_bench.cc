// cal_dump's output forms on an hour of the scaled example site, beside
// raw_dump printing the same hour as text, in the same run: CPU seconds of
// each program (user + system, from wait4) and calibrated values written a
// second, best of three runs each, output to /dev/null (NetCDF to a file
// in the scratch site).  The interval statistics (-a 1800, every variable
// and the four covariances of w) are set beside BINCOLUMN, the cheapest
// form that writes every value.
//
//   caldump_bench CAL_DUMP RAW_DUMP
#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "scaled_site.h"

namespace {

const int kSeconds = 3600;
const double kValues = 256.0 * kSeconds;  // calibrated values in the hour
const double kSamples = 92.0 * kSeconds;  // raw samples in the hour

// CPU seconds of one run of argv with its output on /dev/null; -1 on failure.
double cpuOf(const std::vector<std::string>& argv) {
  const pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  int status;
  struct rusage ru;
  if (wait4(pid, &status, 0, &ru) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) * 1e-6;
}

double best(const std::vector<std::string>& argv) {
  double b = -1;
  for (int i = 0; i < 3; ++i) {
    const double t = cpuOf(argv);
    if (t < 0) return -1;
    b = b < 0 ? t : std::min(b, t);
  }
  return b;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: caldump_bench CAL_DUMP RAW_DUMP\n");
    return 2;
  }
  ScaledSite site(kSeconds);
  if (!site.ok()) return 1;
  const std::vector<std::string> span = {argv[1], "-s", "2026 11 21 12:00", "-e", "2026 11 21 13:00"};
  struct Case {
    const char* name;
    std::vector<std::string> args;
  } cases[] = {
      {"ASCIICOLUMN", {"-F", "ASCIICOLUMN"}},
      {"BINCOLUMN", {"-F", "BINCOLUMN"}},
      {"CSV", {"-F", "CSV"}},
      {"NETCDF", {"-F", "NETCDF", "-o", site.root() + "/hour.nc"}},
      {"CSV -a 1800", {"-F", "CSV", "-a", "1800", "-c", "w.wind:u.wind,v.wind,tc.wind,q.kh2o"}},
  };
  const std::string raw = site.raw();
  const double rawText = best({argv[2], "-D", "2026 11 21", raw + "/tern1_20261121_120000.raw",
                               raw + "/tern2_20261121_120000.raw", raw + "/tern3_20261121_120000.raw"});
  if (rawText < 0) return fprintf(stderr, "raw_dump failed\n"), 1;
  printf("%-22s %8s %14s\n", "an hour of the site", "CPU s", "values/s");
  printf("%-22s %8.3f %14.0f   (raw samples/s)\n", "raw_dump text", rawText, kSamples / rawText);
  double bincolumn = 0;
  for (const Case& c : cases) {
    std::vector<std::string> args = span;
    args.insert(args.end(), c.args.begin(), c.args.end());
    const double t = best(args);
    if (t < 0) return fprintf(stderr, "cal_dump %s failed\n", c.name), 1;
    if (std::string(c.name) == "BINCOLUMN") bincolumn = t;
    printf("%-22s %8.3f %14.0f   (%.2f x raw_dump's time)\n", c.name, t, kValues / t, t / rawText);
    if (c.args.size() > 2 && c.args[2] == "-a")
      printf("%-22s %8.3f   (statistics against writing every value as BINCOLUMN)\n", "", t - bincolumn);
  }
  return 0;
}
