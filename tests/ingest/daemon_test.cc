// Daemon mode end to end: serial_ingest -z supervising stand-in "Ingest"
// processes on pseudo-terminal ports, reporting to a real syslog socket.
#include <gtest/gtest.h>

#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "ingest/daemon_fixture.h"
#include "support/rpc_fixture.h"
#include "support/subprocess.h"

namespace {
std::string serialLine(const std::string& station, const std::string& host, const std::string& port) {
  return station + " " + host + " " + port + " 9600 none 8 1 none local\n";
}

// The report of `station`'s stand-in other than the one with pid `notPid`.
const DaemonSite::Report* find(const std::vector<DaemonSite::Report>& rs, const std::string& st,
                               const std::string& notPid = "") {
  for (const DaemonSite::Report& r : rs)
    if (r.at("station") == st && r.at("pid") != notPid) return &r;
  return nullptr;
}

std::string hostName() {
  struct utsname un;
  return uname(&un) == 0 ? un.nodename : "";
}

class Daemon : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!site.unavailable().empty()) GTEST_SKIP() << site.unavailable();
  }
  DaemonSite site;
};
}  // namespace

TEST_F(Daemon, SupervisesThisHostsPortsRestartsRereadsAndEndsOnSigint) {
  heron_test::TestModuleServer server({"PROJECT=demo", "OPS=ops1"});
  ASSERT_TRUE(server.ok()) << server.error();

  const std::string me = hostName(), shortMe = me.substr(0, me.find('.'));
  const std::string badFlow = site.addPort();
  std::string table = "# test site\n" + serialLine("mine", me, site.addPort()) + serialLine("anyhost", "-", site.addPort()) +
                      serialLine("short", shortMe, site.addPort()) + serialLine("theirs", "elsewhere", site.addPort()) +
                      "net " + me + " socket\n" + serialLine("gone", "-", "/dev/pts/no-such-port") +
                      "badflow - " + badFlow + " 9600 none 8 1 rtscts local\n";
  site.writeConfig(table);
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  EXPECT_NE(site.waitLog("started, config: " + site.configPath()), "");
  // Ports that cannot be set up are logged; the others run.
  EXPECT_NE(site.waitLog("IOException: /dev/pts/no-such-port: open: No such file or directory"), "");
  EXPECT_NE(site.waitLog("IOException: " + badFlow + ": Unknown flow control: rtscts"), "");

  std::vector<DaemonSite::Report> rs = site.reports(3);
  ASSERT_EQ(rs.size(), 3u);
  const std::string daemon = rs[0].at("parent");
  // Each got the open, configured port and nothing else besides the standard
  // streams, the environment, a clean signal mask, root's raised priority,
  // and a detached supervisor (a session of its own, stdin on null).
  const DaemonSite::Report want = {
      {"same_port", "1"}, {"vmin", "128"}, {"INGEST_SERVER", me}, {"PROJECT", "demo"}, {"OPS", "ops1"},
      {"sigint_blocked", "0"}, {"session", daemon}, {"extra_fds", "0"},
      {"std", access("/dev/console", W_OK) == 0 ? "ncc" : "nnn"},
      {"nice", std::to_string(std::max(-20, getpriority(PRIO_PROCESS, 0) - 10))}};
  for (const char* station : {"mine", "anyhost", "short"}) {
    const DaemonSite::Report* r = find(rs, station);
    ASSERT_NE(r, nullptr) << station;
    for (const auto& kv : want) EXPECT_EQ(r->at(kv.first), kv.second) << station << " " << kv.first;
  }
  // The child holds its port's lock: a dump started beside it is refused.
  const std::string port = find(rs, "mine")->at("device");
  RunResult dump = runProgram({"/usr/bin/timeout", "5", SERIAL_INGEST_BIN, "-H", "-d", port});
  EXPECT_EQ(dump.status, 1);
  EXPECT_EQ(dump.err, "Opened: " + port + "\nIOException: " + port + ": lock: port in use: locked by process " +
                          daemon + "\n");
  // A killed child is reported and restarted, not sooner than a second later.
  const std::string first = find(rs, "mine")->at("pid");
  const auto killedAt = std::chrono::steady_clock::now();
  kill(atoi(first.c_str()), SIGKILL);
  EXPECT_NE(site.waitLog("mine [" + first + "] has exited/stopped, exit value:0, signal:SIGKILL(9)"), "");
  EXPECT_NE(find(site.reports(4), "mine", first), nullptr);
  EXPECT_GE(std::chrono::steady_clock::now() - killedAt, std::chrono::seconds(1));
  // SIGHUP picks up a new entry.
  site.writeConfig(table + serialLine("late", "-", site.addPort()));
  kill(atoi(daemon.c_str()), SIGHUP);
  EXPECT_NE(site.waitLog("received SIGHUP signal, will reread ingest.conf"), "");
  EXPECT_NE(find(site.reports(5), "late"), nullptr);
  // SIGINT ends the supervisor and leaves the children running.
  kill(atoi(daemon.c_str()), SIGINT);
  EXPECT_NE(site.waitLog("received 2 signal, terminating"), "");
  EXPECT_TRUE(site.waitDaemonExit());
  for (const DaemonSite::Report& r : site.reports(5))
    EXPECT_TRUE(r.at("pid") == first || kill(atoi(r.at("pid").c_str()), 0) == 0) << r.at("station");
  // Tried on every pass, the failing ports were logged once each.
  for (const std::string& bad : {std::string("/dev/pts/no-such-port"), badFlow})
    EXPECT_EQ(site.countLog("IOException: " + bad + ":"), 1u) << bad;
}

// A child that ends at once is started again after 1, 2 and 4 seconds; a
// SIGINT while a pass goes through ports that fail is answered at once.
TEST_F(Daemon, BacksOffQuickEndsAndAnswersSigintBetweenPortStarts) {
  heron_test::TestModuleServer server({"PROJECT=demo", "OPS=ops1"});
  ASSERT_TRUE(server.ok()) << server.error();
  std::string table = serialLine("quick", "-", site.addPort());
  site.writeConfig(table);
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1", "INGEST_STANDIN_EXIT=quick"}), 0);
  std::vector<double> starts;  // when each stand-in wrote its report
  for (const DaemonSite::Report& r : site.reports(4, 15)) {
    struct stat st;
    ASSERT_EQ(stat((site.dir() + "/reports/quick." + r.at("pid")).c_str(), &st), 0);
    starts.push_back(static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9);
  }
  ASSERT_EQ(starts.size(), 4u);
  std::sort(starts.begin(), starts.end());
  for (int i = 1; i < 4; ++i) {
    EXPECT_GE(starts[i] - starts[i - 1], (1 << (i - 1)) - 0.05) << i;
    EXPECT_LT(starts[i] - starts[i - 1], (1 << (i - 1)) + 1.5) << i;
  }

  for (int i = 0; i < 6; ++i) table += serialLine("gone", "-", "/dev/pts/no-such-" + std::to_string(i));
  site.writeConfig(table);
  const pid_t daemon = atoi(site.reports(0, 0)[0].at("parent").c_str());
  kill(daemon, SIGHUP);
  EXPECT_NE(site.waitLog("/dev/pts/no-such-0: open"), "");
  const auto sent = std::chrono::steady_clock::now();
  kill(daemon, SIGINT);
  EXPECT_TRUE(site.waitDaemonExit());
  EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(3));
}

// SIGINT during a module-server call that the server drags out (a reply of
// six seconds, one byte at a time) ends the call and the supervisor at once.
TEST_F(Daemon, AnswersSigintDuringASlowModuleServerCall) {
  heron_test::FaultyServer slow(heron_test::kModuleServerProgram, "trickle");
  ASSERT_TRUE(slow.ok()) << slow.error();
  site.writeConfig(serialLine("slow", "-", site.addPort()));
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  const pid_t daemon = site.waitLogPid("started, config");
  ASSERT_GT(daemon, 0);
  sleep(2);  // into the slow call
  const auto sent = std::chrono::steady_clock::now();
  kill(daemon, SIGINT);
  EXPECT_TRUE(site.waitDaemonExit());
  EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(2));
}

TEST_F(Daemon, EndsWhenThereIsNothingToDoOrNoTable) {
  site.writeConfig(serialLine("theirs", "elsewhere", "/dev/null") + "net - socket\n");
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  EXPECT_NE(site.waitLog(" on " + hostName() +
                         " has nothing to do (no serial port entries in ingest.conf for me)"),
            "");
  EXPECT_TRUE(site.waitDaemonExit());

  DaemonSite missing;
  ASSERT_EQ(missing.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  EXPECT_NE(missing.waitLog("BadConfigurationException: IOException: " + missing.configPath() +
                            ": open: No such file or directory"),
            "");
  EXPECT_TRUE(missing.waitDaemonExit());
}

// A set-user-id-root copy run by an unprivileged user keeps no privilege:
// it cannot open a port its user could not, and in daemon mode neither the
// supervisor nor its children stay root.
TEST_F(Daemon, SetUserIdCopyGivesUpRoot) {
  struct passwd* nobody = getpwnam("nobody");
  if (!nobody) GTEST_SKIP() << "no user nobody";
  struct statvfs fs;
  if (statvfs(site.dir().c_str(), &fs) == 0 && (fs.f_flag & ST_NOSUID)) GTEST_SKIP() << "nosuid mount";
  std::string copy = site.dir() + "/serial_ingest";
  ASSERT_EQ(system(("cp " SERIAL_INGEST_BIN " " + copy + " && chown 0:0 " + copy + " && chmod 4755 " + copy).c_str()), 0);
  const int uid = static_cast<int>(nobody->pw_uid);
  const std::vector<std::string> env = {"CONFIG_SERVER=127.0.0.1", "ASAN_OPTIONS=detect_leaks=0"};

  // Single-port mode on a port only root may open.
  std::string rootOnly = site.addPort(0600);
  EXPECT_EQ(site.start(copy, env, uid, {"-H", "-d", rootOnly}), 1);

  // The caller's PATH leads to the stand-in's own folder; the fixed system
  // path leads to its copy at /usr/local/sbin, which is the one started.  It
  // gets no console opened with root's rights and no raised priority.
  site.writeConfig(serialLine("mine", "-", site.addPort(0666)));
  site.systemStandin = true;
  ASSERT_EQ(site.start(copy, env, uid), 0);
  std::vector<DaemonSite::Report> rs = site.reports(1);
  ASSERT_EQ(rs.size(), 1u);
  const std::string id = std::to_string(uid);
  const DaemonSite::Report want = {{"uids", id + " " + id + " " + id}, {"exe", "/usr/local/sbin/Ingest"},
                                   {"std", "nnn"}, {"extra_fds", "0"},
                                   {"nice", std::to_string(getpriority(PRIO_PROCESS, 0))}};
  for (const auto& kv : want) EXPECT_EQ(rs[0].at(kv.first), kv.second) << kv.first;
  // The supervisor is this test's own process, known by the id its child
  // reported; only its status is read, no process found by name.
  std::ifstream st("/proc/" + rs[0].at("parent") + "/status");
  std::string line, uidLine;
  while (std::getline(st, line))
    if (line.rfind("Uid:", 0) == 0) uidLine = line;
  EXPECT_EQ(uidLine, "Uid:\t" + id + "\t" + id + "\t" + id + "\t" + id);
}
