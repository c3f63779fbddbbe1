// ingest.conf: the word-stream records, comments, socket entries, rejected
// records, hostile input and the ingest-server look-up.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <string>

#include "base/Exception.h"
#include "site/IngestConfig.h"
#include "base/logit.h"

namespace {
class IngestConf : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/ingestconfXXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir = tmpl;
    syslogit = 0;
  }
  void TearDown() override { system(("rm -rf " + dir).c_str()); }
  std::string write(const std::string& text, const std::string& name = "ingest.conf") {
    std::string path = dir + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  std::string dir;
};
}  // namespace

TEST_F(IngestConf, RecordsCommentsAndSockets) {
  std::string path = write(
      "# station table\n"
      "\n"
      "sonic1 flux1 /dev/ttyS0 9600 none 8 1 none local   trailing words ignored\n"
      "#no-space-comment whole line\n"
      "gas2 - /dev/ttyS1\n"
      "   19200 even 7 2 RTSCTS modem\n"  // a record over a line break
      "net1 flux2 SoCkEt anything after\n"
      "sonic1 other /dev/ttyS2 23040 odd 8 1 CTS LOCAL\n"
      "hash #host /dev/tty#3 4800 none 8 1 none local");  // no final newline
  IngestConfig cfg(path.c_str());
  ASSERT_EQ(cfg.size(), 5u);
  const IngestConfigEntry& a = cfg[0];
  EXPECT_EQ(a.stationName, "sonic1");
  EXPECT_EQ(a.ingestServer, "flux1");
  EXPECT_EQ(a.portName, "/dev/ttyS0");
  EXPECT_EQ(a.type, SERIALPORT);
  EXPECT_EQ(a.baud, 9600);
  EXPECT_EQ(a.parity, "none");
  EXPECT_EQ(a.databits, 8);
  EXPECT_EQ(a.stopbits, 1);
  EXPECT_EQ(a.flowcontrol, "none");
  EXPECT_EQ(a.local, "local");
  EXPECT_EQ(cfg[1].stationName, "gas2");
  EXPECT_EQ(cfg[1].baud, 19200);
  EXPECT_EQ(cfg[1].stopbits, 2);
  EXPECT_EQ(cfg[1].local, "modem");
  EXPECT_EQ(cfg[2].type, SOCKET);
  EXPECT_EQ(cfg[2].portName, "SoCkEt");  // as written, not lower-cased
  EXPECT_EQ(cfg[2].parity, "");
  EXPECT_EQ(cfg[2].baud, 0);
  EXPECT_EQ(cfg[3].ingestServer, "other");  // duplicates kept in order
  EXPECT_EQ(cfg[4].ingestServer, "#host");  // "#" only starts a comment in the first word
  EXPECT_EQ(cfg[4].portName, "/dev/tty#3");
}

TEST_F(IngestConf, BadRecordsAreLoggedAndSkipped) {
  std::string path = write(
      "short1 h /dev/ttyS0 9600 none 8 1 none\n"  // five settings: swallows "ok1" as its sixth
      "ok1 h /dev/ttyS1 9600 none 8 1 none local\n"
      "bad2 h /dev/ttyS2 fast none 8 1 none local\n"
      "ok2 h /dev/ttyS3 9600 none 8 1 none local\n"
      "cut h /dev/ttyS4 9600 none");
  testing::internal::CaptureStderr();
  IngestConfig cfg(path.c_str());
  std::string err = testing::internal::GetCapturedStderr();
  ASSERT_EQ(cfg.size(), 2u);
  EXPECT_EQ(cfg[0].stationName, "short1");
  EXPECT_EQ(cfg[0].local, "ok1");
  EXPECT_EQ(cfg[1].stationName, "ok2");
  std::string line = "bad line in " + path + ": i = \n";
  EXPECT_EQ(err, line + line);
}

TEST_F(IngestConf, HostileInputNeverCrashes) {
  std::mt19937 rng(12345);
  for (int round = 0; round < 50; ++round) {
    std::string noise;
    size_t n = rng() % 4000;
    for (size_t i = 0; i < n; ++i) noise += static_cast<char>(rng() % 256);
    std::string path = write(noise);
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(IngestConfig cfg(path.c_str()));
    testing::internal::GetCapturedStderr();
  }
  std::string longWord(10000, 'x');
  std::string path = write(longWord + " " + longWord + " " + longWord + " 9600 " + longWord +
                           " 8 1 " + longWord + " " + longWord + "\n" + longWord + " " + longWord +
                           " socket\n99999999999999999999 h /dev/x 99999999999 none 8 1 none local\n");
  IngestConfig cfg(path.c_str());
  ASSERT_EQ(cfg.size(), 3u);
  EXPECT_EQ(cfg[0].stationName, longWord);
  EXPECT_EQ(cfg[0].local, longWord);
  EXPECT_EQ(cfg[1].type, SOCKET);
  EXPECT_EQ(cfg[2].baud, 2147483647);  // clamped, not wrapped
}

TEST_F(IngestConf, OpenFailureAndServerLookup) {
  try {
    IngestConfig cfg((dir + "/missing.conf").c_str());
    FAIL();
  } catch (const BadConfigurationException& e) {
    EXPECT_EQ(e.toString(), "BadConfigurationException: IOException: " + dir +
                                "/missing.conf: open: No such file or directory");
  }

  system(("mkdir -p " + dir + "/projects/p/o").c_str());
  write("# nothing yet\n", "projects/p/o/ingest.conf");
  setenv("HERON", dir.c_str(), 1);
  setenv("PROJECT", "p", 1);
  setenv("OPS", "o", 1);
  unsetenv("INGEST_SERVER");
  EXPECT_EQ(ingestServer("sonic1"), "heron");
  setenv("INGEST_SERVER", "flux9", 1);
  EXPECT_EQ(ingestServer("sonic1"), "flux9");
  write("sonic1 first socket\nsonic1 second socket\n", "projects/p/o/ingest.conf");
  EXPECT_EQ(ingestServer("sonic1"), "first");
  EXPECT_EQ(ingestServer("SONIC1"), "flux9");  // exact match only
  setenv("OPS", "gone", 1);
  EXPECT_THROW(ingestServer("sonic1"), BadConfigurationException);
  unsetenv("INGEST_SERVER");
}
