// Ingest's start, run by hand on a pseudo-terminal: a raw-data directory it
// cannot make stops it before it registers, and so does a live Ingest of
// the same station.  (A registration left by a killed one is taken over:
// cal_dump_live_test.cc kills one and sees the next serve.)
#include <gtest/gtest.h>

#include <pty.h>

#include <string>

#include "rpc/ingest_rpc.h"
#include "support/live_service.h"
#include "support/rpc_fixture.h"
#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

const std::string kIngest = std::string(INGEST_BIN_DIR) + "/Ingest";

class IngestStart : public ::testing::Test {
 protected:
  void SetUp() override {
    HERON_REQUIRE_RPCBIND();  // whatever it registers stays on the test's own network
    ASSERT_EQ(openpty(&master_, &slave_, name_, nullptr, nullptr), 0);
    site_.write("config/kites_config", "kites_number tern1 " + std::to_string(number_) + "\n");
    site_.write("projects/p/o/channel_config", "timetag msecs ;\n");
    site_.write("projects/p/o/ingest.conf", std::string("tern1 - ") + name_ + " 230400 none 8 1 none local\n");
    useRaw(site_.root() + "/data/raw");
  }
  void TearDown() override {
    close(master_);
    close(slave_);
  }
  void useRaw(const std::string& dir) {
    site_.write("projects/p/o/archive_config",
                "directory \"" + dir + "\" ;\narchive tern1 \"tern1_%Y%m%d_%H%M%S.raw\" 3600 ;\n");
  }

  ScratchSite site_;
  const int number_ = heron_test::testSystemNumber();
  int master_ = -1, slave_ = -1;
  char name_[64];
};

TEST_F(IngestStart, UnwritableArchiveDirectoryStopsItBeforeRegistering) {
  site_.write("plain", "a file where a folder should be");
  useRaw(site_.root() + "/plain/raw");
  const RunResult r = runProgram({kIngest, name_});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(site_.root() + "/plain/raw: making the raw-data directory: Not a directory"), std::string::npos)
      << r.err;
  EXPECT_EQ(r.err.find("serving program"), std::string::npos) << r.err;
}

TEST_F(IngestStart, ALiveIngestOfTheStationIsNotReplaced) {
  heron_test::LiveService other(number_);
  const RunResult r = runProgram({kIngest, name_});
  EXPECT_EQ(r.status, 1);
  char text[128];
  snprintf(text, sizeof text, "program %#x for tern1 is already registered: another Ingest", INGEST_PROG + number_);
  EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
}

}  // namespace
