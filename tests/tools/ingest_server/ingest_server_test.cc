// Ingest for real: serial_ingest -z starts it on a pseudo-terminal port that
// the test feeds, live clients connect through the library's ingest input,
// and the archive is read back from the scratch site.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <errno.h>
#include <string.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ingest/daemon_fixture.h"
#include "lib/samples/sample_support.h"
#include "samples/StreamInputs.h"
#include "support/rpc_fixture.h"
#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

const int kChannels = 4;

// Sample i: channel 1 + i % 4, 14 data bytes, tags rising from ms.
std::string sample(int i, uint32_t ms) {
  std::string data(14, '\0');
  for (int k = 0; k < 14; ++k) data[k] = static_cast<char>(i >> (k % 3 * 8));
  return sample_test::bytesOf({ms + static_cast<uint32_t>(i) / 50, static_cast<uint8_t>(1 + i % kChannels), data});
}

class IngestChain : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!site_.unavailable().empty()) GTEST_SKIP() << site_.unavailable();
    ASSERT_TRUE(module_.ok()) << module_.error();
    const DaemonSite::Station tern1 = site_.addStations({"tern1"}, number_)[0];
    master_ = tern1.master;
    port_ = tern1.device;
  }
  // Starts the daemon, and so Ingest; tags count from now.
  void start() {
    const std::vector<pid_t> pids = site_.startStations(INGEST_BIN_DIR);
    ASSERT_EQ(pids.size(), 2u);
    daemon_ = pids[0];
    ingest_ = pids[1];
    ASSERT_GT(ingest_, 0);
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    ms_ = static_cast<uint32_t>(ts.tv_sec % 86400 * 1000 + ts.tv_nsec / 1000000);
  }
  void TearDown() override {
    EXPECT_TRUE(site_.endStations({daemon_, ingest_}));
    umount2(raw_.c_str(), MNT_DETACH);  // the full-disk test's tmpfs
  }

  // Writes samples [from, to) to the port, each with its end-of-message byte.
  // Paced at 50 times the line rate, which a reading client keeps up with.
  void play(int from, int to) {
    for (int i = from; i < to; i += 100) {
      std::string bytes;
      for (int k = i; k < std::min(i + 100, to); ++k) bytes += sample(k, ms_) + '\3';
      for (size_t done = 0; done < bytes.size();) {
        ssize_t w = write(master_, bytes.data() + done, bytes.size() - done);
        if (w <= 0) return;
        done += static_cast<size_t>(w);
      }
      usleep(2000);
    }
  }
  // Ends Ingest as the supervisor would, and sees it go.
  void end() {
    ASSERT_EQ(kill(ingest_, SIGTERM), 0);
    EXPECT_NE(site_.waitLog("SIGTERM: ending"), "");
    DaemonSite::waitGone(ingest_);
  }
  // The archive's samples, file after file in name order; each file must
  // hold whole samples.
  std::vector<std::string> archive() const {
    std::vector<std::string> samples;
    for (const auto& file : ScratchSite::files(raw_)) {
      const std::string& f = file.second;
      size_t at = 0;
      for (size_t len; at + 6 <= f.size() && at + 6 + (len = static_cast<unsigned char>(f[at + 5])) <= f.size();
           at += 6 + len)
        samples.push_back(f.substr(at, 6 + len));
      EXPECT_EQ(at, f.size()) << file.first << " ends in a partial sample";
    }
    return samples;
  }
  // Samples [from, to), in order.
  std::vector<std::string> played(int from, int to) const {
    std::vector<std::string> v;
    for (int i = from; i < to; ++i) v.push_back(sample(i, ms_));
    return v;
  }

  DaemonSite site_;
  heron_test::TestModuleServer module_{{"PROJECT=p", "OPS=o"}};
  const int number_ = heron_test::testSystemNumber();
  const std::string raw_ = site_.rawDir();
  int master_ = -1;
  std::string port_;
  uint32_t ms_ = 0;
  pid_t daemon_ = -1, ingest_ = -1;  // as they name themselves in the log
};

TEST_F(IngestChain, ArchivesEverySampleAndServesLiveClients) {
  start();
  ChanBits odd, all;
  odd.Set(std::vector<int>{1, 3});
  all.Set(std::vector<int>{1, 2, 3, 4});
  auto stalled = std::make_unique<IngestRawDataInput>("tern1", number_, heron_test::kLoopback, all, 1);  // never read
  const int small = 4096;  // so the stalled client's socket fills soon
  ASSERT_EQ(setsockopt(stalled->getFD(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  auto live = std::make_unique<IngestRawDataInput>("tern1", number_, heron_test::kLoopback, odd, 1);
  const struct timeval patience = {10, 0};  // a lost sample fails the test instead of hanging it
  ASSERT_EQ(setsockopt(live->getFD(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
  const int n = 40000;
  std::thread player([&] { play(0, n); });
  RawSample s;
  for (int i = 0; i < n; i += 2) {
    const bool read = live->readSample(&s) == 1;
    if (!read || sample_test::bytesOf(sample_test::recordOf(s)) != sample(i, ms_)) {
      ADD_FAILURE() << "sample " << i << (read ? " differs" : " not read");
      break;
    }
  }
  player.join();
  // The stalled client lost samples, the live one none; both are listed.
  RunResult status = runProgram({INGEST_STATUS_BIN, "tern1", "127.0.0.1"});
  EXPECT_EQ(status.status, 0) << status.err;
  EXPECT_NE(status.out.find("station tern1  port " + port_ + "  open"), std::string::npos) << status.out;
  // nsamples, nwrites, nlost
  EXPECT_TRUE(std::regex_search(status.out, std::regex("stream +20000 +[0-9]+ +0 "))) << status.out;
  EXPECT_TRUE(std::regex_search(status.out, std::regex("stream +40000 +[0-9]+ +[1-9]"))) << status.out;
  live.reset();
  stalled.reset();
  end();
  EXPECT_TRUE(archive() == played(0, n)) << archive().size() << " samples archived of " << n;
}

// Runs ingest_status until its line for tern1 matches state (a regex) or
// seconds pass; the last run.
RunResult statusUntil(const std::string& state, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  RunResult r;
  while (!std::regex_search((r = runProgram({INGEST_STATUS_BIN})).out, std::regex("(^|\n)tern1 +\\S+ +(" + state + ") ")) &&
         std::chrono::steady_clock::now() < end)
    usleep(200000);
  return r;
}

// The table, the channel view and the JSON document tell the same; a port
// that falls silent shows quiet within 12 s, and a killed Ingest down.
// (Its successor taking over the registration it left is cal_dump's live
// test, which reconnects to it.)
TEST_F(IngestChain, StatusShowsStationsChannelsQuietAndDown) {
  start();
  play(0, 4000);
  const auto played = std::chrono::steady_clock::now();
  RunResult table = statusUntil("up +[0-9.]+s +[0-9.]+ +4000 +0 +0 +tern1_\\S+ +80000", 5);  // once flushed
  EXPECT_EQ(table.status, 0) << table.out << table.err;
  RunResult json = runProgram({INGEST_STATUS_BIN, "--json"});
  RunResult facts = runProgram({"/usr/bin/python3", "-c", "import json,sys; d=json.load(sys.stdin); s=d['stations'][0]; "
                                "print(d['status'], s['station'], s['state'], s['samples'], len(s['channels']), "
                                "sum(c['samples'] for c in s['channels']), s['archive_bytes'])"}, json.out);
  EXPECT_EQ(facts.out, "0 tern1 up 4000 4 4000 80000\n") << json.out << facts.err;
  RunResult one = runProgram({INGEST_STATUS_BIN, "tern1", "127.0.0.1"});
  for (int chan = 1; chan <= kChannels; ++chan)
    EXPECT_TRUE(std::regex_search(one.out, std::regex("\n +" + std::to_string(chan) + " +1000 +[0-9.]+ +[0-9.]+s\n")))
        << one.out;
  RunResult watched = runProgram({"/usr/bin/timeout", "--preserve-status", "-s", "INT", "2.5", INGEST_STATUS_BIN, "-w", "1"});
  EXPECT_EQ(watched.status, 0) << watched.err;
  EXPECT_GE(std::count(watched.out.begin(), watched.out.end(), '\n'), 6) << watched.out;  // 3 views of 2 lines at least
  RunResult quiet = statusUntil("quiet", 12 - std::chrono::duration<double>(std::chrono::steady_clock::now() - played).count());
  EXPECT_EQ(quiet.status, 1) << quiet.out;
  // What cannot be asked, and what is not a question.
  const std::vector<std::pair<std::vector<std::string>, int>> cases = {
      {{"-c", "/nonexistent/ingest.conf"}, 3}, {{"nosuchstation", "127.0.0.1"}, 3}, {{"-w", "0"}, 3}, {{"--help"}, 0}};
  for (const auto& c : cases) {
    std::vector<std::string> argv = {INGEST_STATUS_BIN};
    argv.insert(argv.end(), c.first.begin(), c.first.end());
    RunResult r = runProgram(argv);
    EXPECT_EQ(r.status, c.second) << c.first[0] << ": " << r.err;
    EXPECT_EQ(r.err.empty(), c.second == 0) << c.first[0];
  }
  ASSERT_EQ(kill(daemon_, SIGSTOP), 0);  // so that it starts no successor before we look
  ASSERT_EQ(kill(ingest_, SIGKILL), 0);
  RunResult down = statusUntil("down|unregistered", 5);
  EXPECT_EQ(down.status, 2) << down.out << down.err;
}

// A full disk is logged and retried; clients keep their data, and the
// archive is whole once space returns.
TEST_F(IngestChain, FullDiskIsLoggedServedLiveAndRecovers) {
  ASSERT_EQ(mount("tmpfs", raw_.c_str(), "tmpfs", 0, "size=64k"), 0) << strerror(errno);
  start();
  ChanBits all;
  all.Set(std::vector<int>{1, 2, 3, 4});
  auto live = std::make_unique<IngestRawDataInput>("tern1", number_, heron_test::kLoopback, all, 1);
  const int n = 8000;  // 160 kB
  std::thread player([&] { play(0, n); });
  RawSample s;
  int got = 0;
  while (got < n && live->readSample(&s) == 1) ++got;
  player.join();
  EXPECT_EQ(got, n);
  EXPECT_NE(site_.waitLog("write: No space left on device"), "");
  ASSERT_EQ(mount("tmpfs", raw_.c_str(), "tmpfs", MS_REMOUNT, "size=1m"), 0) << strerror(errno);
  usleep(1500000);
  live.reset();
  end();
  EXPECT_TRUE(archive() == played(0, n));
}

}  // namespace
