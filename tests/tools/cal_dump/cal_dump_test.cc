// cal_dump as a user runs it on the example site's archives.
#include <gtest/gtest.h>

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "PlotSink.h"
#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

const std::vector<std::string> kSite = {"HERON=" HERON_SOURCE_DIR "/examples/site", "PROJECT=demo", "OPS=ops1"};

RunResult calDump(std::vector<std::string> args, const std::vector<std::string>& site = kSite) {
  args.insert(args.begin(), {CAL_DUMP_BIN, "-s", "2026 nov 21 12:00", "-e", "2026 nov 21 12:00:30"});
  return runProgram(args, "", site);
}

TEST(CalDump, FormatsOfTheExampleSite) {
  // The sonic's record: four winds and temperature, three null outputs, diag.
  const RunResult msec = calDump({"u.wind"});
  EXPECT_EQ(msec.status, 0) << msec.err;
  EXPECT_EQ(msec.out.substr(0, msec.out.find('\n') + 1),
            "43200000        2.172       -0.57       -0.12      17.056           0           0           0           0"
            "           0\n");
  const size_t lines = static_cast<size_t>(std::count(msec.out.begin(), msec.out.end(), '\n'));
  EXPECT_EQ(lines, 300u);
  EXPECT_EQ(calDump({"-F", "BINCOLUMN", "u.wind"}).out.size(), lines * (8 + 4 * 9));
  // Quiet by default: the library's information lines only with -v.
  EXPECT_EQ(msec.err, "");
  EXPECT_NE(calDump({"-v", "u.wind"}).err.find("Opened: "), std::string::npos);

  // A lagged value leaves alone and fills only its own column.
  const RunResult csv = calDump({"-F", "CSV", "p.baro", "t.irga"});
  EXPECT_EQ(csv.status, 0) << csv.err;
  const RunResult read = runProgram({"/usr/bin/python3", "-c",
                                     "import csv, sys\n"
                                     "rows = list(csv.reader(sys.stdin))\n"
                                     "print(rows[0], rows[1], len(rows))"},
                                    csv.out);
  EXPECT_EQ(read.out, "['time', 'p.baro (mb)', 't.irga (degC)'] ['2026-11-21T12:00:00.007Z', '850.049', ''] 326\n")
      << read.err;
}

// The samples and their statistics as xarray reads them, checked by
// check_netcdf.py; the air temperature calibrated to 5e36, which arithmetic
// on a missing value gives, must read as missing.
TEST(CalDump, NetcdfReadByXarray) {
  if (runProgram({"/usr/bin/python3", "-c", "import xarray, netCDF4"}).status != 0)
    GTEST_SKIP() << "python3-xarray or python3-netcdf4 is not installed";
  ScratchSite site("demo", "ops1");
  ASSERT_EQ(system(("cp -r " HERON_SOURCE_DIR "/examples/site/. '" + site.root() + "' && sed -i " +
                    "'s/linear 20 0 \"degC\"/linear 0 5e36 \"degC\"/' " + site.opsDir() + "/prep.config").c_str()), 0);
  const std::string samples = site.root() + "/samples.nc", stats = site.root() + "/stats.nc";
  for (std::vector<std::string> args :
       {std::vector<std::string>{"-o", samples}, {"-a", "10", "-c", "w.wind:u.wind", "-o", stats}}) {
    args.insert(args.end(), {"-F", "NETCDF", "u.wind", "w.wind", "t.met", "p.baro"});
    const RunResult r = calDump(args, {"HERON=" + site.root(), "PROJECT=demo", "OPS=ops1"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err.find("UDUNITS"), std::string::npos) << r.err;
  }
  const RunResult check = runProgram(
      {"/usr/bin/python3", HERON_SOURCE_DIR "/tests/tools/cal_dump/check_netcdf.py", samples, stats});
  EXPECT_EQ(check.out, "OK\n") << check.err;
}

TEST(CalDump, StatisticsAndGridAgreeWithTheSamples) {
  // The first ten seconds' samples as CSV, their statistics and their grid
  // of seconds, checked by python's own arithmetic.  q arrives 5 ms after w:
  // w pairs with the q before it; the irga's values come 0.8 s late.
  ScratchSite dir;
  const std::string samples = dir.root() + "/samples.csv", stats = dir.root() + "/stats.csv";
  const std::string grid = dir.root() + "/grid.csv";
  ASSERT_EQ(calDump({"-F", "CSV", "-e", "2026 nov 21 12:00:10", "-o", samples, "u.wind", "w.wind", "q.kh2o",
                     "co2.irga"}).status,
            0);
  const RunResult r = calDump({"-F", "CSV", "-a", "10", "-c", "w.wind:u.wind,q.kh2o", "-o", stats, "u.wind", "w.wind",
                               "q.kh2o"});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(calDump({"-F", "CSV", "-r", "1s", "-e", "2026 nov 21 12:00:10", "-o", grid, "u.wind", "w.wind", "q.kh2o",
                     "co2.irga"}).status,
            0);
  const RunResult check = runProgram(
      {"/usr/bin/python3", "-c",
       "import collections, csv, sys, statistics as st\n"
       "rows = list(csv.reader(open(sys.argv[1])))[1:]\n"
       "head, got = list(csv.reader(open(sys.argv[2])))[:2]\n"
       "u = [float(r[1]) for r in rows if r[1]]\n"
       "w = [float(r[2]) for r in rows if r[2]]\n"
       "wq, last = [], None\n"
       "for r in rows:\n"
       "    if r[3]: last = float(r[3])\n"
       "    elif r[2] and last is not None: wq.append((float(r[2]), last))\n"
       "want = [st.mean(u), st.variance(u), len(u), st.mean(w), st.variance(w), len(w)]\n"
       "want += [st.covariance(w, u), st.covariance(*zip(*wq))]\n"
       "got = [float(x) for x in got[1:7] + got[10:]]\n"
       "print(head[10:], all(abs(g - x) < 1e-4 * (1 + abs(x)) for g, x in zip(got, want)), len(got))\n"
       "steps = collections.defaultdict(list)\n"
       "[steps[(r[0][:19], c)].append(float(r[c])) for r in rows for c in range(1, 5) if r[c]]\n"
       "grid = list(csv.reader(open(sys.argv[3])))[1:]\n"
       "print([g[0][11:] for g in grid[::9]], all(abs(float(g[c]) - st.mean(steps[(g[0][:19], c)])) < 1e-4\n"
       "      for g in grid for c in range(1, 5)))\n",
       samples, stats, grid});
  EXPECT_EQ(check.out,
            "['cov.w.wind.u.wind (m/s m/s)', 'cov.w.wind.q.kh2o (m/s g/m^3)'] True 8\n"
            "['12:00:00.000Z', '12:00:09.000Z'] True\n")
      << check.err;
}

TEST(CalDump, ScreenedValues) {
  // The example site with u's limits at [-1, 1]; t's calibration lands
  // between 1e36 and the mark 1e37 (as the tilt leaves a rotated mark), and
  // rh's beyond a float.
  ScratchSite site("demo", "ops1");
  ASSERT_EQ(runProgram({"/bin/cp", "-r", HERON_SOURCE_DIR "/examples/site/.", site.root()}).status, 0);
  std::string text = ScratchSite::read(site.opsDir() + "/prep.config");
  for (const auto& edit : {std::make_pair("limits    -30 30", "limits    -1 1"),
                           std::make_pair("linear 20 0 \"degC\"", "linear 5e36 0 \"degC\""),
                           std::make_pair("linear 20 50 \"%\"", "linear 1e40 0 \"%\"")})
    text.replace(text.find(edit.first), strlen(edit.first), edit.second);
  site.write("projects/demo/ops1/prep.config", text);
  std::vector<RunResult> runs;
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"-F", "CSV", "u.wind", "t.met", "rh.hum"}, {"--limits", "-F", "CSV", "u.wind", "t.met", "rh.hum"},
           {"-F", "HMS", "t.met", "rh.hum"}}) {
    runs.push_back(calDump(args, {"HERON=" + site.root()}));
    ASSERT_EQ(runs.back().status, 0) << runs.back().err;
  }
  const RunResult check = runProgram(
      {"/usr/bin/python3", "-c",
       "import csv, sys\n"
       "a, b = (list(csv.reader(open(f))) for f in sys.argv[1:3])\n"
       "out = [float(x[1]) for x, y in zip(a[1:], b[1:]) if x != y and y[1] == '']\n"
       "text = {v for l in open(sys.argv[3]) for v in l.split()[1:]}\n"
       "print(sum(x != y for x, y in zip(a, b)) == len(out), len(out), all(abs(u) > 1 for u in out),\n"
       "      {r[2] + r[3] for r in a[1:]}, text)\n",
       site.write("a.csv", runs[0].out), site.write("b.csv", runs[1].out), site.write("c.txt", runs[2].out)});
  EXPECT_EQ(check.out, "True 292 True {''} {'1e+37'}\n") << check.err;
  EXPECT_EQ(runs[0].err, "");
  EXPECT_EQ(runs[1].err, "cal_dump: limits: u.wind 292 outside [-1, 1]\n");
}

// The title names the site and the day; across midnight UTC both days, and
// the ticks carry the date.  (The plot itself: cal_dump_days_test.cc draws
// one across midnight, and the station page's browser test one of an hour.)
TEST(CalDump, PlotHeadingWithinADayAndAcrossMidnight) {
  const double noon = 1795262400;  // 2026-11-21T12:00:00Z
  const struct {
    double from, to;
    const char *title, *format;
  } cases[] = {
      {noon - 43200, noon + 43199.999, "demo/ops1, 2026-11-21", "%H:%M:%S"},
      {noon + 43190, noon + 43200, "demo/ops1, 2026-11-21 - 2026-11-22", "%d %b\n%H:%M:%S"},
  };
  for (const auto& c : cases) {
    const heron::PlotHeading h = heron::plotHeading("demo/ops1", c.from, c.to);
    EXPECT_EQ(h.title, c.title) << c.from;
    EXPECT_EQ(h.timeFormat, c.format) << c.from;
  }
}

// -o replaces only a regular file or a new name; a device is written as it
// is, a link to a writable file is followed, other links are refused.
TEST(CalDump, OutputTargets) {
  ScratchSite dir;
  const std::string file = dir.root() + "/f.csv", link = dir.root() + "/link.csv", dangling = dir.root() + "/d.csv";
  ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
  ASSERT_EQ(symlink((dir.root() + "/none/x").c_str(), dangling.c_str()), 0);
  const struct { std::string path; int status; const char* err; } cases[] = {
      {"/dev/null", 0, ""}, {file, 0, ""}, {link, 0, ""},
      {dangling, 1, "d.csv: create: a symbolic link that leads to no"}};
  for (const auto& c : cases) {
    const RunResult r = calDump({"-F", "CSV", "-o", c.path, "u.wind"});
    EXPECT_EQ(r.status, c.status) << c.path << ": " << r.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
  }
  struct stat st;
  EXPECT_TRUE(stat("/dev/null", &st) == 0 && S_ISCHR(st.st_mode));
  EXPECT_TRUE(lstat(link.c_str(), &st) == 0 && S_ISLNK(st.st_mode));
  EXPECT_EQ(ScratchSite::read(file).substr(0, 5), "time,");
}

TEST(CalDump, Errors) {
  const struct {
    std::vector<std::string> args;
    int status;
    std::string out, err;
  } cases[] = {
      {{"u.wind", "nope.x"}, 1, "", "cal_dump: BadConfigurationException: Unknown variable: nope.x\n"},
      {{"-s", "2026 nov 22", "-e", "2026 nov 22 1:00", "u.wind"}, 1, "",
       "cal_dump: no samples between 2026-11-22T00:00:00.000Z and 2026-11-22T01:00:00.000Z\n"},
      {{"--help"}, 0, "Usage: cal_dump", ""},
      {{"-F", "NETCDF", "u.wind"}, 1, "", "cal_dump: NETCDF is written to a file: give -o FILE\n"},
      {{"-F", "CSV", "-o", "/nonexistent/x.csv", "u.wind"}, 1, "",
       "cal_dump: IOException: /nonexistent/x.csv: create: No such file or directory\n"},
      {{"-F", "CSV", "-a", "10", "-c", "w.wind:nope.x"}, 1, "", "Unknown variable: nope.x\n"},
      {{"-F", "CSV", "-c", "w.wind:u.wind"}, 1, "", "cal_dump: covariances (-c) are statistics: give -a SECONDS\n"},
      // Numbers out of bounds once overflowed into the year 292278994.
      {{"-a", "1e-300"}, 1, "", "cal_dump: -a: the interval is not a number of seconds from 0.001 to 31622400"},
      {{"-a", "4e7"}, 1, "", "-a: the interval is not"},
      {{"-s", "1969 dec 31"}, 1, "", "cal_dump: -s: the start time is not a time from 1970 to 2100: \"1969 dec 31\""},
      {{"-e", "2100 jan 1"}, 1, "", "cal_dump: -e: the end time is not a time from 1970 to 2100"},
      {{"-e", "2026-11-21T25:00"}, 1, "",
       "cal_dump: cannot read the time \"2026-11-21T25:00\": write it as 2026-11-21T12:00:00Z or \"2026 11 21 12:00\"\n"},
      {{"--plot", "p.png", "--plot-size", "640x480x"}, 1, "", "cal_dump: --plot-size: the plot size is"},
      {{"-m", "tern9"}, 1, "", "-m: no sensor of prep.config is on module \"tern9\""},
      {{"-m", "tern1", "u.wind"}, 1, "", "cal_dump: -m takes every variable of its module: name no variables"},
  };
  for (const auto& c : cases) {
    const RunResult r = calDump(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[0];
    EXPECT_EQ(r.out.substr(0, c.out.size()), c.out) << c.args[0];
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
  }
  // Live, from a host that does not exist (a server that is not there yet
  // is waited for: cal_dump_live_test.cc).
  std::vector<std::string> env = kSite;
  env.push_back("INGEST_SERVER=no-such-host.invalid");
  const RunResult live = runProgram({CAL_DUMP_BIN, "-l", "u.wind"}, "", env);
  EXPECT_EQ(live.status, 1);
  EXPECT_NE(live.err.find("tern1@no-such-host.invalid: connect: the server's host is unknown\n"), std::string::npos)
      << live.err;
}

}  // namespace
