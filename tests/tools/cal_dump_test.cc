// cal_dump as a user runs it on the example site's archives.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/subprocess.h"

namespace {

const std::vector<std::string> kSite = {"HERON=" HERON_SOURCE_DIR "/examples/site", "PROJECT=demo", "OPS=ops1"};

RunResult calDump(std::vector<std::string> args) {
  args.insert(args.begin(), {CAL_DUMP_BIN, "-s", "2026 nov 21 12:00", "-e", "2026 nov 21 12:00:30"});
  return runProgram(args, "", kSite);
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
  };
  for (const auto& c : cases) {
    const RunResult r = calDump(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[0];
    EXPECT_EQ(r.out.substr(0, c.out.size()), c.out) << c.args[0];
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
  }
}

}  // namespace
