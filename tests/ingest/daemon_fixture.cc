#include "ingest/daemon_fixture.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>

namespace {
double now() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

// In the child, before exec: a private /dev holding only what the program
// needs, with "log" leading to the test's socket.
bool privateDev(const std::string& dir) {
  std::string old = dir + "/olddev";
  if (unshare(CLONE_NEWNS) < 0) return false;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0) return false;
  if (mount("/dev", old.c_str(), nullptr, MS_BIND | MS_REC, nullptr) < 0) return false;
  if (mount("tmpfs", "/dev", "tmpfs", 0, "mode=755") < 0) return false;
  for (const char* name : {"null", "zero", "urandom", "random", "ptmx", "console", "tty"}) {
    std::string target = old + "/" + name;
    if (access(target.c_str(), F_OK) == 0 && symlink(target.c_str(), (std::string("/dev/") + name).c_str()) < 0)
      return false;
  }
  if (mkdir("/dev/pts", 0755) < 0) return false;
  if (mount((old + "/pts").c_str(), "/dev/pts", nullptr, MS_BIND, nullptr) < 0) return false;
  return symlink((dir + "/log.sock").c_str(), "/dev/log") == 0;
}
}  // namespace

std::string DaemonLog::waitFor(const std::string& text, double seconds) {
  for (const std::string& m : messages)
    if (m.find(text) != std::string::npos) return m;
  double end = now() + seconds;
  char buf[2048];
  while (now() < end) {
    struct pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) continue;
    ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n <= 0) continue;
    std::string line(buf, n);
    // "<pri>Mmm dd hh:mm:ss name[pid]: text"
    size_t open = line.find('['), close = line.find("]: ");
    if (open == std::string::npos || close == std::string::npos) continue;
    pids.push_back(atoi(line.c_str() + open + 1));
    messages.push_back(line.substr(close + 3));
    if (messages.back().find(text) != std::string::npos) return messages.back();
  }
  return "";
}

DaemonSite::DaemonSite() {
  if (geteuid() != 0) {
    unavailable_ = "needs root for a private /dev";
    return;
  }
  char tmpl[] = "/tmp/daemonsiteXXXXXX";
  if (!mkdtemp(tmpl)) {
    unavailable_ = "mkdtemp failed";
    return;
  }
  dir_ = tmpl;
  chmod(dir_.c_str(), 0755);
  mkdir((dir_ + "/olddev").c_str(), 0755);
  mkdir((dir_ + "/reports").c_str(), 0777);
  chmod((dir_ + "/reports").c_str(), 0777);
  log.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un sun;
  memset(&sun, 0, sizeof sun);
  sun.sun_family = AF_UNIX;
  snprintf(sun.sun_path, sizeof sun.sun_path, "%s/log.sock", dir_.c_str());
  if (log.fd < 0 || bind(log.fd, reinterpret_cast<struct sockaddr*>(&sun), sizeof sun) < 0) {
    unavailable_ = std::string("cannot make the log socket: ") + strerror(errno);
    return;
  }
  chmod(sun.sun_path, 0666);
  // Orphans of the daemon (the supervisor after it detaches, its children
  // after it ends) come to us, so they can be waited for and cleaned up.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  pid_t probe = fork();
  if (probe == 0) _exit(privateDev(dir_) ? 0 : 1);
  int status = 0;
  waitpid(probe, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) unavailable_ = "cannot make a private /dev here";
}

DaemonSite::~DaemonSite() {
  // Every process left (the supervisor, the stand-ins) is ours by now or
  // the supervisor's; end them all.
  std::vector<int> pids;
  for (const Report& r : reports(0, 0)) pids.push_back(r.pid);
  if (daemonPid_ > 0) pids.push_back(daemonPid_);
  for (int pid : pids) kill(pid, SIGKILL);
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  for (int fd : ptyFds_) close(fd);
  if (log.fd >= 0) close(log.fd);
  if (!dir_.empty()) system(("rm -rf " + dir_).c_str());
}

std::string DaemonSite::addPort(int mode) {
  int master, slave;
  char name[64];
  if (openpty(&master, &slave, name, nullptr, nullptr) < 0) return "";
  fcntl(master, F_SETFD, FD_CLOEXEC);
  fcntl(slave, F_SETFD, FD_CLOEXEC);
  chmod(name, mode);
  ptyFds_.push_back(master);
  ptyFds_.push_back(slave);
  return name;
}

void DaemonSite::writeConfig(const std::string& text) {
  std::string tmp = configPath() + ".tmp";
  std::ofstream(tmp) << text;
  chmod(tmp.c_str(), 0644);
  rename(tmp.c_str(), configPath().c_str());
}

int DaemonSite::start(const std::string& program, const std::vector<std::string>& env, int uid,
                      std::vector<std::string> args) {
  if (args.empty()) args = {"-z", "-c", configPath()};
  pid_t pid = fork();
  if (pid == 0) {
    if (!privateDev(dir_)) _exit(126);
    std::string path = std::string("PATH=") + INGEST_STANDIN_DIR + ":" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    std::string reports = "INGEST_STANDIN_DIR=" + dir_ + "/reports";
    putenv(strdup(path.c_str()));
    putenv(strdup(reports.c_str()));
    for (const std::string& e : env) putenv(strdup(e.c_str()));
    if (uid >= 0 && (setgroups(0, nullptr) < 0 || setresgid(uid, uid, uid) < 0 || setresuid(uid, uid, uid) < 0))
      _exit(125);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int DaemonSite::daemonPid() {
  if (daemonPid_ == 0 && !log.waitFor("started, config: ").empty()) {
    for (size_t i = 0; i < log.messages.size(); ++i)
      if (log.messages[i].find("started, config: ") != std::string::npos) daemonPid_ = log.pids[i];
  }
  return daemonPid_;
}

std::vector<DaemonSite::Report> DaemonSite::reports(size_t n, double seconds) {
  double end = now() + seconds;
  std::vector<Report> out;
  for (;;) {
    out.clear();
    DIR* d = opendir((dir_ + "/reports").c_str());
    while (struct dirent* e = d ? readdir(d) : nullptr) {
      std::string name = e->d_name;
      if (name[0] == '.' || name.size() < 4 || name.compare(name.size() - 4, 4, ".tmp") == 0) continue;
      std::ifstream in(dir_ + "/reports/" + name);
      std::map<std::string, std::string> kv;
      std::string line;
      while (std::getline(in, line)) {
        size_t eq = line.find('=');
        if (eq != std::string::npos) kv[line.substr(0, eq)] = line.substr(eq + 1);
      }
      Report r;
      r.pid = atoi(name.substr(name.rfind('.') + 1).c_str());
      r.station = kv["station"];
      r.device = kv["device"];
      r.sameport = kv["same_port"];
      r.vmin = kv["vmin"];
      r.uids = kv["uids"];
      r.ingestServer = kv["INGEST_SERVER"];
      r.project = kv["PROJECT"];
      r.ops = kv["OPS"];
      r.sigintBlocked = kv["sigint_blocked"];
      out.push_back(r);
    }
    if (d) closedir(d);
    if (out.size() >= n || now() >= end) return out;
    usleep(50000);
  }
}

bool DaemonSite::waitDaemonExit(double seconds) {
  if (daemonPid() <= 0) return false;
  double end = now() + seconds;
  while (now() < end) {
    int status;
    if (waitpid(daemonPid_, &status, WNOHANG) == daemonPid_) {
      daemonPid_ = 0;
      return true;
    }
    usleep(50000);
  }
  return false;
}
