// ingest.conf: the word-stream records, comments, socket entries, rejected
// records and the ingest-server look-up.  Arbitrary bytes are the fuzz
// target's (tests/fuzz/ingest_conf_fuzz.cc).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <sstream>
#include <string>

#include "base/Exception.h"
#include "base/logit.h"
#include "site/IngestConfig.h"
#include "support/scratch_site.h"
#include "support/thrown.h"

namespace {

// Each entry on one line: its fields in order (socket entries stop at the
// port name).
std::string describe(const IngestConfig& cfg) {
  std::ostringstream os;
  for (const IngestConfigEntry& e : cfg.stns) {
    os << e.stationName << '|' << e.ingestServer << '|' << e.portName;
    if (e.type == SERIALPORT)
      os << '|' << e.baud << '|' << e.parity << '|' << e.databits << '|' << e.stopbits << '|' << e.flowcontrol
         << '|' << e.local;
    os << '\n';
  }
  return os.str();
}

TEST(IngestConf, RecordsCommentsSocketsAndRejects) {
  ScratchSite site;
  syslogit = 0;
  const std::string longWord(5000, 'x');
  const struct {
    std::string text, entries;
    int rejected;
  } cases[] = {
      {"# table\n\nsonic1 flux1 /dev/ttyS0 9600 none 8 1 none local  trailing words ignored\n"
       "#no-space comment\ngas2 - /dev/ttyS1\n   19200 even 7 2 RTSCTS modem\n",  // a record over a line break
       "sonic1|flux1|/dev/ttyS0|9600|none|8|1|none|local\ngas2|-|/dev/ttyS1|19200|even|7|2|RTSCTS|modem\n", 0},
      {"net1 flux2 SoCkEt anything\nnet1 other socket\nhash #host /dev/tty#3 4800 none 8 1 none local",
       "net1|flux2|SoCkEt\nnet1|other|socket\nhash|#host|/dev/tty#3|4800|none|8|1|none|local\n", 0},
      {"short1 h /dev/ttyS0 9600 none 8 1 none\nok1 h /dev/ttyS1 9600 none 8 1 none local\n",  // swallows "ok1"
       "short1|h|/dev/ttyS0|9600|none|8|1|none|ok1\n", 0},
      {"bad2 h /dev/ttyS2 fast none 8 1 none local\nok2 h /dev/ttyS3 9600 none 8 1 none local\ncut h /dev/x 9600 none",
       "ok2|h|/dev/ttyS3|9600|none|8|1|none|local\n", 2},
      {longWord + " h p 99999999999 none 8 1 none local\n", longWord + "|h|p|2147483647|none|8|1|none|local\n", 0},
  };
  for (const auto& c : cases) {
    const std::string path = site.writeOps("ingest.conf", c.text);
    testing::internal::CaptureStderr();
    const std::string entries = describe(IngestConfig(path.c_str()));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(entries, c.entries) << c.text;
    std::string want;
    for (int i = 0; i < c.rejected; ++i) want += "bad line in " + path + ": i = \n";
    EXPECT_EQ(log, want);
  }
}

TEST(IngestConf, OpenFailureAndServerLookup) {
  ScratchSite site;
  EXPECT_EQ(thrownText<BadConfigurationException>([] { IngestConfig cfg("$HERON/missing.conf"); }),
            "BadConfigurationException: IOException: " + site.root() + "/missing.conf: open: No such file or directory");
  site.writeOps("ingest.conf", "# nothing yet\n");
  unsetenv("INGEST_SERVER");
  EXPECT_EQ(ingestServer("sonic1"), "heron");
  setenv("INGEST_SERVER", "flux9", 1);
  EXPECT_EQ(ingestServer("sonic1"), "flux9");
  site.writeOps("ingest.conf", "sonic1 first socket\nsonic1 second socket\n");
  EXPECT_EQ(ingestServer("sonic1"), "first");
  EXPECT_EQ(ingestServer("SONIC1"), "flux9");  // exact match only
  setenv("OPS", "gone", 1);
  EXPECT_THROW(ingestServer("sonic1"), BadConfigurationException);
  unsetenv("INGEST_SERVER");
}

}  // namespace
