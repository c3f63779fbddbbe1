// Runs serial_ingest -z for real: its ports are pseudo-terminals, its
// children the stand-in "Ingest" (which reports what it was handed) or,
// for the stations of addStations, the real one, and its
// system log a datagram socket of the test's own, reached through a private
// /dev in a mount namespace (the machine's own /dev/log is never touched).
// The site is a scratch install root; rpcbind is the test's own (see
// support/rpc_fixture.h).  Needs root.
//
// The test knows the processes it may signal by their ids: the supervisor
// and every Ingest name themselves in each log line ("name[pid]: text"),
// and the stand-ins report their own and their parent's.  Nothing is found
// by name.
#ifndef HERON_TESTS_DAEMON_FIXTURE_H
#define HERON_TESTS_DAEMON_FIXTURE_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/scratch_site.h"

class DaemonSite {
 public:
  DaemonSite();
  ~DaemonSite();

  // Why the fixture cannot run here ("" when it can).
  const std::string& unavailable() const { return unavailable_; }

  // A new pseudo-terminal port; returns its device name.  The test keeps
  // its slave open so the line never hangs up.
  std::string addPort(int mode = 0620);
  // Replaces ingest.conf at once, so a pass never reads half of it.
  void writeConfig(const std::string& text);
  std::string configPath() const { return site_.opsDir() + "/ingest.conf"; }
  const std::string& dir() const { return site_.root(); }

  // Runs `program` (default -z -c <config>) in the private namespace with the
  // stand-in first on PATH and `env` added, as `uid` when not -1; returns
  // the exit status of that process (the daemon has detached by then).
  // With systemStandin the stand-in's folder is also /usr/local/sbin there.
  bool systemStandin = false;
  int start(const std::string& program, const std::vector<std::string>& env, int uid = -1,
            std::vector<std::string> args = {});

  // The first log message (the text after "name[pid]: ") containing `text`,
  // waiting up to `seconds`; "" if none came.
  std::string waitLog(const std::string& text, int seconds = 10);
  // The id of the process that logged the first message containing `text`,
  // other than `other`, waiting up to `seconds`; -1 if none came.
  pid_t waitLogPid(const std::string& text, pid_t other = 0, int seconds = 10);
  // How many of the messages that have come so far contain `text`.
  size_t countLog(const std::string& text);
  // Waits up to 10 seconds for the supervisor to end: the detached
  // supervisor is this process's child (it is a subreaper), and the only one
  // that ends by itself.
  static bool waitDaemonExit();

  // Stations for the real Ingest, one per name, each on a new port: system
  // numbers from `number` up, tags in milliseconds, and hourly archive files
  // "<name>_%Y%m%d_%H%M%S.raw" in rawDir(); ingest.conf lists them all.  The
  // test feeds a station by writing its master, which stays the fixture's.
  struct Station {
    std::string name, device;
    int master;
  };
  std::vector<Station> addStations(const std::vector<std::string>& names, int number);
  std::string rawDir() const { return dir() + "/raw"; }
  // Writes a file of the ops folder (did.config, prep.config, ...).
  void writeOps(const std::string& name, const std::string& text) { site_.writeOps(name, text); }
  // Starts the supervisor with the real Ingest of binDir first on PATH and
  // the module server on loopback.  Returns its id, then each station's
  // Ingest's in the order added, once serving (-1 for what never came).
  std::vector<pid_t> startStations(const std::string& binDir);
  // Ends the supervisor (SIGINT, after a SIGCONT in case a test stopped it),
  // so that it starts nothing again, then each Ingest of pids[1..] (SIGTERM),
  // ours to reap once the supervisor is gone.  False if the supervisor stays.
  bool endStations(const std::vector<pid_t>& pids);
  // Waits up to 5 s for pid to end, reaping it if it is our child.
  static void waitGone(pid_t pid);

  // The stand-ins' reports ("key" -> "value", and "pid"; "parent" is the
  // supervisor), waiting until at least n exist or 10 seconds pass.
  using Report = std::map<std::string, std::string>;
  std::vector<Report> reports(size_t n, double seconds = 10);

 private:
  ScratchSite site_;
  std::string unavailable_;
  int logFd_ = -1;
  struct Message {
    pid_t pid;
    std::string text;
  };
  std::vector<Message> messages_;
  const Message* findLog(const std::string& text, pid_t other, int seconds);
  std::vector<int> ptyFds_;
  std::vector<Station> stations_;
};

#endif
