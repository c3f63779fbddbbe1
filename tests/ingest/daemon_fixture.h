// Runs serial_ingest -z for real: its ports are pseudo-terminals, its
// children are the stand-in "Ingest", and its system log is a datagram socket
// of the test's own, reached through a private /dev in a mount namespace
// (so the machine's own /dev/log, if any, is never touched).  Needs root.
#ifndef HERON_TESTS_DAEMON_FIXTURE_H
#define HERON_TESTS_DAEMON_FIXTURE_H

#include <string>
#include <vector>

struct DaemonLog {
  int fd = -1;
  std::vector<std::string> messages;  // the text after "name[pid]: "
  std::vector<int> pids;
  // The first message containing `text`, waiting up to `seconds`; "" if none.
  std::string waitFor(const std::string& text, double seconds = 10);
};

class DaemonSite {
 public:
  DaemonSite();
  ~DaemonSite();

  // Why the fixture cannot run here ("" when it can).
  std::string unavailable() const { return unavailable_; }

  // A new pseudo-terminal port; returns its device name.  Its slave stays
  // open in the test so the line never hangs up.
  std::string addPort(int mode = 0620);
  void writeConfig(const std::string& text);
  std::string configPath() const { return dir_ + "/ingest.conf"; }
  const std::string& dir() const { return dir_; }

  // Starts `program` -z -c <config> in the private namespace, with the
  // stand-in first on PATH and `env` added; runs it as `uid` when not -1.
  // Returns the exit status of the process started (the daemon itself has
  // detached by then).
  int start(const std::string& program, const std::vector<std::string>& env, int uid = -1,
            std::vector<std::string> args = {});

  // The supervisor's pid, from its first log line ("" timeout gives 0).
  int daemonPid();

  struct Report {
    int pid = 0;
    std::string station, device, sameport, vmin, uids, ingestServer, project, ops, sigintBlocked;
  };
  // Reports of stand-ins started so far, waiting until at least n exist.
  std::vector<Report> reports(size_t n, double seconds = 10);

  // Waits for the supervisor to end (it is our child through the subreaper
  // setting); true when it did within the time.
  bool waitDaemonExit(double seconds = 10);

  DaemonLog log;

 private:
  std::string dir_;
  std::string unavailable_;
  std::vector<int> ptyFds_;
  int daemonPid_ = 0;
};

#endif
