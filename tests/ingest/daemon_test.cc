// Daemon mode end to end: serial_ingest -z supervising stand-in "Ingest"
// processes on pseudo-terminal ports, reporting to a real syslog socket.
#include <gtest/gtest.h>

#include <pwd.h>
#include <signal.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "ingest/daemon_fixture.h"
#include "support/rpc_fixture.h"
#include "support/subprocess.h"

namespace {
std::string nodeName() {
  struct utsname un;
  uname(&un);
  return un.nodename;
}

std::string serialLine(const std::string& station, const std::string& host, const std::string& port) {
  return station + " " + host + " " + port + " 9600 none 8 1 none local\n";
}

const DaemonSite::Report* find(const std::vector<DaemonSite::Report>& rs, const std::string& station,
                               int notPid = 0) {
  for (const DaemonSite::Report& r : rs)
    if (r.station == station && r.pid != notPid) return &r;
  return nullptr;
}

double now() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}
}  // namespace

TEST(Daemon, SupervisesThisHostsPortsRestartsRereadsAndLeavesChildren) {
  DaemonSite site;
  if (!site.unavailable().empty()) GTEST_SKIP() << site.unavailable();
  ASSERT_EQ(heron_test::ensureRpcbind(), "");
  heron_test::TestModuleServer server({"PROJECT=demo", "OPS=ops1"});
  ASSERT_TRUE(server.ok()) << server.error();

  const std::string me = nodeName(), shortMe = me.substr(0, me.find('.'));
  std::string mine = site.addPort(), any = site.addPort(), brief = site.addPort(), theirs = site.addPort();
  std::string table = "# test site\n" + serialLine("mine", me, mine) + serialLine("anyhost", "-", any) +
                      serialLine("short", shortMe, brief) + serialLine("theirs", "elsewhere", theirs) +
                      "net " + me + " socket\n";
  site.writeConfig(table);
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  int daemon = site.daemonPid();
  ASSERT_GT(daemon, 0);
  EXPECT_NE(site.log.waitFor("started, config: " + site.configPath()), "");

  std::vector<DaemonSite::Report> rs = site.reports(3);
  ASSERT_EQ(rs.size(), 3u);
  for (const char* station : {"mine", "anyhost", "short"}) {
    const DaemonSite::Report* r = find(rs, station);
    ASSERT_NE(r, nullptr) << station;
    EXPECT_EQ(r->sameport, "1") << station;  // the open, configured port was handed over
    EXPECT_EQ(r->vmin, "128");
    EXPECT_EQ(r->ingestServer, me);
    EXPECT_EQ(r->project, "demo");
    EXPECT_EQ(r->ops, "ops1");
    EXPECT_EQ(r->sigintBlocked, "0");
  }
  EXPECT_EQ(find(rs, "mine")->device, mine);

  // A killed child is reported and restarted, not sooner than a second later.
  int first = find(rs, "mine")->pid;
  double killedAt = now();
  kill(first, SIGKILL);
  EXPECT_NE(site.log.waitFor("mine [" + std::to_string(first) +
                             "] has exited/stopped, exit value:0, signal:SIGKILL(9)"),
            "");
  rs = site.reports(4);
  const DaemonSite::Report* again = find(rs, "mine", first);
  ASSERT_NE(again, nullptr);
  EXPECT_GE(now() - killedAt, 1.0);

  // SIGHUP picks up a new entry.
  std::string late = site.addPort();
  site.writeConfig(table + serialLine("late", "-", late));
  kill(daemon, SIGHUP);
  EXPECT_NE(site.log.waitFor("received SIGHUP signal, will reread ingest.conf"), "");
  rs = site.reports(5);
  EXPECT_NE(find(rs, "late"), nullptr);

  // SIGINT ends the supervisor and leaves the children running.
  kill(daemon, SIGINT);
  EXPECT_NE(site.log.waitFor("received 2 signal, terminating"), "");
  EXPECT_TRUE(site.waitDaemonExit());
  for (const DaemonSite::Report& r : site.reports(5)) {
    if (r.pid == first) continue;
    EXPECT_EQ(kill(r.pid, 0), 0) << r.station;
  }
  EXPECT_EQ(std::count(site.log.messages.begin(), site.log.messages.end(), std::string()), 0);
}

TEST(Daemon, EndsWhenThereIsNothingToDoOrNoTable) {
  DaemonSite site;
  if (!site.unavailable().empty()) GTEST_SKIP() << site.unavailable();
  site.writeConfig(serialLine("theirs", "elsewhere", "/dev/null") + "net - socket\n");
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  EXPECT_NE(site.log.waitFor(" on " + nodeName() +
                             " has nothing to do (no serial port entries in ingest.conf for me)"),
            "");
  EXPECT_TRUE(site.waitDaemonExit());
  EXPECT_TRUE(site.reports(0, 0).empty());

  DaemonSite missing;
  ASSERT_EQ(missing.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  EXPECT_NE(missing.log.waitFor("BadConfigurationException: IOException: " + missing.configPath() +
                                ": open: No such file or directory"),
            "");
  missing.daemonPid();
  EXPECT_TRUE(missing.waitDaemonExit());
}

TEST(Daemon, PortThatCannotBeOpenedIsLoggedAndTheRestRun) {
  DaemonSite site;
  if (!site.unavailable().empty()) GTEST_SKIP() << site.unavailable();
  std::string good = site.addPort();
  site.writeConfig(serialLine("gone", "-", "/dev/pts/no-such-port") + serialLine("good", "-", good) +
                   "badflow - " + good + " 9600 none 8 1 rtscts local\n");
  ASSERT_EQ(site.start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1"}), 0);
  EXPECT_NE(site.log.waitFor("IOException: /dev/pts/no-such-port: open: No such file or directory"), "");
  EXPECT_NE(site.log.waitFor("IOException: " + good + ": Unknown flow control: rtscts"), "");
  std::vector<DaemonSite::Report> rs = site.reports(1);
  ASSERT_EQ(rs.size(), 1u);
  EXPECT_EQ(rs[0].station, "good");
}

// A set-user-id-root copy run by an unprivileged user keeps no privilege:
// it cannot open a port its user could not, and in daemon mode neither the
// supervisor nor its children stay root.
TEST(Daemon, SetUserIdCopyGivesUpRoot) {
  DaemonSite site;
  if (!site.unavailable().empty()) GTEST_SKIP() << site.unavailable();
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
  int status = site.start(copy, env, uid, {"-H", "-d", rootOnly});
  EXPECT_EQ(status, 1);

  std::string open = site.addPort(0666);
  site.writeConfig(serialLine("mine", "-", open));
  ASSERT_EQ(site.start(copy, env, uid), 0);
  int daemon = site.daemonPid();
  ASSERT_GT(daemon, 0);
  std::vector<DaemonSite::Report> rs = site.reports(1);
  ASSERT_EQ(rs.size(), 1u);
  std::string ids = std::to_string(uid) + " " + std::to_string(uid) + " " + std::to_string(uid);
  EXPECT_EQ(rs[0].uids, ids);
  std::ifstream st("/proc/" + std::to_string(daemon) + "/status");
  std::string line, uidLine;
  while (std::getline(st, line))
    if (line.rfind("Uid:", 0) == 0) uidLine = line;
  EXPECT_EQ(uidLine, "Uid:\t" + std::to_string(uid) + "\t" + std::to_string(uid) + "\t" + std::to_string(uid) +
                         "\t" + std::to_string(uid));
}
