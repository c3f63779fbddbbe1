// site_check over copies of the example site, each broken in one way: every
// fault is reported as file:line and the status is 1; the clean site passes.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

struct Case {
  const char* file;  // beneath the root; its text is appended (or the file removed when null)
  const char* append;
  std::vector<std::pair<int, std::string>> faults;  // lines past the file's last (0: the whole file)
};

int lineCount(const std::string& path) {
  std::ifstream in(path);
  int n = 0;
  for (std::string line; std::getline(in, line);) ++n;
  return n;
}

TEST(SiteCheck, EveryFaultOfABrokenSite) {
  const Case cases[] = {
      {"config/kites_config", "kites_number tern9 -5\nkites_number tern8 4294967297\nkites_number\n",
       {{1, "module number \"-5\" is not 0 to 1048575"}, {2, "module number \"4294967297\" is not 0 to 1048575"},
        {3, "expected \"kites_number NAME NUMBER\""}}},
      {"projects/demo/ops1/ingest.conf",
       "bad1 - /dev/ttyS5 fast none 8 1 none local\nbad2 - /dev/ttyS6 9601 mark 9 3 XON lcoal\nbad3 - /dev/ttyS7 9600 none",
       {{1, "baud \"fast\" is not a number"}, {2, "baud 9601: 75 to 115200 in the usual steps, or 23040"},
        {2, "parity \"mark\": none, even or odd"}, {2, "data bits 9: 5, 6, 7 or 8"}, {2, "stop bits 3: 1 or 2"},
        {2, "flow control \"XON\": none, RTS, CTS or RTSCTS"}, {2, "\"lcoal\": local or modem"},
        {3, "missing data bits at the end of the table"}}},
      {"projects/demo/ops1/channel_config", "timetag wierd13 ;\n",
       {{1, "time-tag type \"wierd13\": msecs or wierd12"}}},
      {"projects/demo/ops1/irga.lag", "2026 11 22 00:00:00 1e39\n   0.5\n",
       {{1, "lag 1e39 s is beyond a day (86400 s)"}, {2, "expected a time and a lag"}}},
      {"projects/demo/cal_files/demo_kh2o.cal", "2026 Nov 2 00:00:00 1.3 0.1\n",
       {{1, "a time and 2 values, where the first record has 3"}}},
      {"projects/demo/ops1/archive_config", "directory \"$HERON/config/kites_config/raw\" ;\n",
       {{0, "raw-data directory "}}},
      {"projects/demo/ops1/prep.config", "sensor x { module ;\n", {{1, "syntax error"}}},
      {"projects/demo/ops1/did.config", nullptr, {{0, "open: No such file or directory"}}},
      {"projects/demo/ops1/ingest.allow", "10.1.2.0/24\n10.1.2.3/24\n",
       {{2, "'10.1.2.3/24' has bits set beyond its prefix length"}}},
  };
  for (const Case& c : cases) {
    ScratchSite site("demo", "ops1");
    ASSERT_EQ(runProgram({"/bin/cp", "-r", HERON_SOURCE_DIR "/examples/site/.", site.root()}).status, 0);
    const std::string path = site.root() + "/" + c.file;
    const int base = lineCount(path);
    if (c.append != nullptr)
      std::ofstream(path, std::ios::app) << c.append;
    else
      ASSERT_EQ(unlink(path.c_str()), 0);
    const RunResult r = runProgram({SITE_CHECK_BIN}, "", {});
    EXPECT_EQ(r.status, 1) << c.file;
    EXPECT_EQ(r.err, "") << c.file;
    std::string want;
    for (const auto& f : c.faults) {
      const std::string where = f.first > 0 ? path + ":" + std::to_string(base + f.first) + ": " : path + ": ";
      EXPECT_NE(r.out.find(where), std::string::npos) << where << "\n" << r.out;
      EXPECT_NE(r.out.find(f.second), std::string::npos) << f.second << "\n" << r.out;
    }
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), static_cast<long>(c.faults.size())) << r.out;
  }
  ScratchSite clean("demo", "ops1");
  ASSERT_EQ(runProgram({"/bin/cp", "-r", HERON_SOURCE_DIR "/examples/site/.", clean.root()}).status, 0);
  const RunResult r = runProgram({SITE_CHECK_BIN, "-v"}, "", {});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.out, "site_check: 11 files, no faults\n");
}

}  // namespace
