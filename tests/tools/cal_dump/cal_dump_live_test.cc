// cal_dump -l through the real chain: started before the daemon, it waits
// for the two stations' servers, takes every sample once they answer, and
// rides out one station's Ingest being killed (the supervisor starts it
// again) while the other flows on.  A second cal_dump, of b alone into a
// file (-o), leaves that file whole when interrupted.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ingest/daemon_fixture.h"
#include "support/rpc_fixture.h"

namespace {

const auto fileText = ScratchSite::read;

// Waits up to 20 s for path to hold text `count` times.
bool waitFor(const std::string& path, const std::string& text, int count = 1) {
  for (int k = 0; k < 400; ++k, usleep(50000)) {
    const std::string t = fileText(path);
    int n = 0;
    for (size_t at = t.find(text); at != std::string::npos; at = t.find(text, at + 1)) ++n;
    if (n >= count) return true;
  }
  return false;
}

// cal_dump -l -F CSV with args, its output to out and its messages to err.
pid_t startCalDump(const std::string& out, const std::string& err, std::vector<std::string> args) {
  args.insert(args.begin(), {CAL_DUMP_BIN, "-l", "-F", "CSV"});
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  const pid_t dump = fork();
  if (dump == 0) {
    const int o = open(out.c_str(), O_WRONLY | O_CREAT, 0644), e = open(err.c_str(), O_WRONLY | O_CREAT, 0644);
    if (dup2(o, 1) == 1 && dup2(e, 2) == 2 && setenv("INGEST_SERVER", "127.0.0.1", 1) == 0) execv(argv[0], argv.data());
    _exit(127);
  }
  return dump;
}

// Every sample of b, and of a all but those sent in [beforeKill,
// afterBack), which a never sent; b flowed while a was away.
void checkRows(const std::string& out, const int sent[2], int beforeKill, int afterBack) {
  std::istringstream rows(fileText(out).substr(fileText(out).find('\n') + 1));
  std::set<int> got[2];
  int bInGap = 0;
  for (std::string row; std::getline(rows, row);) {
    const size_t c1 = row.find(','), c2 = row.find(',', c1 + 1);
    got[c2 == c1 + 1].insert(std::stoi(row.substr(c2 == c1 + 1 ? c2 + 1 : c1 + 1)));
    bInGap += c2 == c1 + 1 && got[0].count(beforeKill - 1) && !got[0].count(afterBack);
  }
  for (int k = 0; k < 2; ++k)
    for (int i = 0; i < sent[k]; ++i) EXPECT_EQ(got[k].count(i), k == 1 || i < beforeKill || i >= afterBack ? 1u : 0u) << k << i;
  EXPECT_GT(bInGap, 20);
}

// The file of b alone: its header, then its samples in order from the
// first, and nothing cut off.
void checkWholeFile(const std::string& file) {
  std::istringstream rows(fileText(file));
  std::string row;
  EXPECT_TRUE(std::getline(rows, row) && row == "time,v.b") << row;
  int n = 0;
  for (; std::getline(rows, row) && std::regex_match(row, std::regex("[^,]+," + std::to_string(n))); ++n) continue;
  EXPECT_TRUE(n > 20 && rows.eof()) << n << ": " << row;
}

TEST(CalDumpLive, WaitsReconnectsAndKeepsTheOtherStation) {
  HERON_REQUIRE_RPCBIND();
  DaemonSite site;
  if (!site.unavailable().empty()) GTEST_SKIP() << site.unavailable();
  heron_test::TestModuleServer module{{"PROJECT=p", "OPS=o"}};
  ASSERT_TRUE(module.ok()) << module.error();
  const std::vector<DaemonSite::Station> st = site.addStations({"a", "b"}, heron_test::testSystemNumber());
  site.writeOps("did.config", "x.a 1 ; v.a 2 ; x.b 3 ; v.b 4 ;");
  site.writeOps("prep.config", "sensor a { module a 200 ; outputs x v ; calibrate serial_short \"big\" ; }\n"
                               "sensor b { module b 200 ; outputs x v ; calibrate serial_short \"big\" ; }\n");
  const std::string out = site.dir() + "/out.csv", err = site.dir() + "/err";
  const std::string file = site.dir() + "/b.csv", fileErr = site.dir() + "/b.err";  // b alone, with -o
  const pid_t dump = startCalDump(out, err, {"v.a", "v.b"}), fileDump = startCalDump("/dev/null", fileErr, {"-o", file, "v.b"});
  ASSERT_TRUE(waitFor(err, "waiting for its ingest server (RPC: Program not registered); trying every second", 2));
  const std::vector<pid_t> pids = site.startStations(INGEST_BIN_DIR);
  ASSERT_EQ(pids.size(), 3u);
  ASSERT_TRUE(waitFor(err, ": connected\n", 2) && waitFor(fileErr, ": connected\n")) << fileText(err) << fileText(fileErr);

  // Sample i of a station holds i, every 10 ms from now; a pauses over the
  // kill, so that each of its samples is either delivered or never sent.
  std::atomic<int> sent[2] = {{0}, {0}};
  std::atomic<bool> pauseA{false}, stop{false};
  std::thread player([&] {
    for (; !stop; usleep(10000))
      for (int k = pauseA ? 1 : 0; k < 2; ++k) {
        const std::string s = heron_test::nowSample(200, static_cast<uint32_t>(sent[k]++)) + '\3';
        EXPECT_EQ(write(st[k].master, s.data(), s.size()), static_cast<ssize_t>(s.size()));
      }
  });
  usleep(500000);
  pauseA = true;
  const int beforeKill = sent[0];
  EXPECT_TRUE(waitFor(out, "," + std::to_string(beforeKill - 1) + ",\n"));
  ASSERT_EQ(kill(pids[1], SIGKILL), 0);
  const pid_t againA = site.waitLogPid("a on " + st[0].device + ": archiving to", pids[1]);
  EXPECT_TRUE(waitFor(err, "a@127.0.0.1: connected again after a gap of")) << fileText(err);
  const int afterBack = sent[0];
  pauseA = false;
  usleep(500000);
  stop = true;
  player.join();
  EXPECT_TRUE(waitFor(out, "," + std::to_string(sent[0] - 1) + ",\n") && waitFor(out, ",," + std::to_string(sent[1] - 1)));
  int status = -1;
  const size_t before = fileText(err).size();
  ASSERT_TRUE(kill(dump, SIGINT) == 0 && waitpid(dump, &status, 0) == dump);
  EXPECT_EQ(status, 0);
  EXPECT_NE(fileText(err).find("a@127.0.0.1: the connection ended (the server closed it)"), std::string::npos);
  // Ctrl-C is the normal end: the summary is all it adds.
  const std::string end = fileText(err).substr(before);
  EXPECT_TRUE(std::regex_match(end, std::regex("cal_dump: [0-9]+ records, 1 reconnections\n"))) << end;
  const int counts[2] = {sent[0], sent[1]};
  checkRows(out, counts, beforeKill, afterBack);
  // Interrupted, -o leaves a whole file: b's samples in order from the first.
  ASSERT_TRUE(kill(fileDump, SIGINT) == 0 && waitpid(fileDump, &status, 0) == fileDump);
  EXPECT_EQ(status, 0) << fileText(fileErr);
  checkWholeFile(file);

  EXPECT_TRUE(site.endStations({pids[0], againA, pids[2]}));
}

}  // namespace
