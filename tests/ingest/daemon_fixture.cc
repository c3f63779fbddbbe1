#include "ingest/daemon_fixture.h"

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
#include <unistd.h>

#include <chrono>
#include <sstream>

#include "support/rpc_fixture.h"

namespace {
using Clock = std::chrono::steady_clock;

// In the child, before exec: a private /dev holding only what the program
// needs, with "log" leading to the test's socket.
bool privateDev(const std::string& dir) {
  std::string old = dir + "/olddev";
  if (unshare(CLONE_NEWNS) < 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0 ||
      mount("/dev", old.c_str(), nullptr, MS_BIND | MS_REC, nullptr) < 0 ||
      mount("tmpfs", "/dev", "tmpfs", 0, "mode=755") < 0)
    return false;
  for (const char* name : {"null", "zero", "urandom", "random", "ptmx", "console", "tty"}) {
    std::string target = old + "/" + name;
    if (access(target.c_str(), F_OK) == 0 && symlink(target.c_str(), (std::string("/dev/") + name).c_str()) < 0)
      return false;
  }
  return mkdir("/dev/pts", 0755) == 0 && mount((old + "/pts").c_str(), "/dev/pts", nullptr, MS_BIND, nullptr) == 0 &&
         symlink((dir + "/log.sock").c_str(), "/dev/log") == 0;
}
}  // namespace

DaemonSite::DaemonSite() {
  chmod(dir().c_str(), 0755);  // the set-user-id test's user reads the table
  mkdir((dir() + "/olddev").c_str(), 0755);
  mkdir((dir() + "/reports").c_str(), 0777);
  chmod((dir() + "/reports").c_str(), 0777);
  logFd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un sun = {};
  sun.sun_family = AF_UNIX;
  snprintf(sun.sun_path, sizeof sun.sun_path, "%s/log.sock", dir().c_str());
  if (logFd_ < 0 || bind(logFd_, reinterpret_cast<struct sockaddr*>(&sun), sizeof sun) < 0) {
    unavailable_ = std::string("cannot make the log socket: ") + strerror(errno);
    return;
  }
  chmod(sun.sun_path, 0666);
  // Orphans of the daemon (the supervisor after it detaches, its children
  // after it ends) come to us, so they can be waited for and cleaned up.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  unavailable_ = heron_test::rpcbindSkipReason();
  if (unavailable_.empty() && !heron_test::ensureRpcbind().empty())
    unavailable_ = "no rpcbind of the test's own: " + heron_test::ensureRpcbind();
  if (unavailable_.empty() && start("/bin/true", {}, -1, {"-"}) != 0)
    unavailable_ = "cannot make a private /dev here (needs root)";
}

// Whatever is left of the processes this test started: each has logged
// through the test's socket or reported to its folder.
DaemonSite::~DaemonSite() {
  findLog("\x01", 0, 0);  // no message holds that byte
  for (const Message& m : messages_) kill(m.pid, SIGKILL);
  for (const Report& r : reports(0, 0))
    for (const char* key : {"pid", "parent"}) kill(atoi(r.at(key).c_str()), SIGKILL);
  while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
  for (int fd : ptyFds_) close(fd);
  if (logFd_ >= 0) close(logFd_);
}

std::string DaemonSite::addPort(int mode) {
  int master, slave;
  char name[64];
  if (openpty(&master, &slave, name, nullptr, nullptr) < 0) return "";
  for (int fd : {master, slave}) fcntl(fd, F_SETFD, FD_CLOEXEC);
  chmod(name, mode);
  ptyFds_.insert(ptyFds_.end(), {master, slave});
  return name;
}

void DaemonSite::writeConfig(const std::string& text) {
  rename(site_.writeOps("ingest.conf.tmp", text).c_str(), configPath().c_str());
}

int DaemonSite::start(const std::string& program, const std::vector<std::string>& env, int uid,
                      std::vector<std::string> args) {
  if (args.empty()) args = {"-z", "-c", configPath()};
  pid_t pid = fork();
  if (pid == 0) {
    if (!privateDev(dir()) ||
        (systemStandin && mount(INGEST_STANDIN_DIR, "/usr/local/sbin", nullptr, MS_BIND, nullptr) < 0))
      _exit(126);
    setenv("PATH", (std::string(INGEST_STANDIN_DIR ":") + (getenv("PATH") ? getenv("PATH") : "/bin")).c_str(), 1);
    setenv("INGEST_STANDIN_DIR", (dir() + "/reports").c_str(), 1);
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

std::vector<DaemonSite::Station> DaemonSite::addStations(const std::vector<std::string>& names, int number) {
  std::string kites, archive = "directory \"" + rawDir() + "\" ;\n", table;
  mkdir(rawDir().c_str(), 0755);
  for (const std::string& name : names) {
    const std::string device = addPort();
    stations_.push_back({name, device, ptyFds_[ptyFds_.size() - 2]});
    kites += "kites_number " + name + " " + std::to_string(number++) + "\n";
    archive += "archive " + name + " \"" + name + "_%Y%m%d_%H%M%S.raw\" 3600 ;\n";
    table += name + " - " + device + " 230400 none 8 1 none local\n";
  }
  site_.write("config/kites_config", kites);
  site_.writeOps("channel_config", "timetag msecs ;\n");
  site_.writeOps("archive_config", archive);
  writeConfig(table);
  return stations_;
}

std::vector<pid_t> DaemonSite::startStations(const std::string& binDir) {
  std::vector<pid_t> pids;
  if (start(SERIAL_INGEST_BIN, {"CONFIG_SERVER=127.0.0.1", "PATH=" + binDir + ":/usr/bin:/bin"}) != 0) return pids;
  pids.push_back(waitLogPid("started, config"));
  for (const Station& s : stations_) pids.push_back(waitLogPid(s.name + " on " + s.device + ": archiving to"));
  return pids;
}

bool DaemonSite::endStations(const std::vector<pid_t>& pids) {
  bool ended = true;
  if (!pids.empty() && pids[0] > 0 && kill(pids[0], SIGCONT) == 0 && kill(pids[0], SIGINT) == 0)
    ended = waitDaemonExit();
  for (size_t k = 1; k < pids.size(); ++k)
    if (pids[k] > 0 && kill(pids[k], SIGTERM) == 0) waitGone(pids[k]);
  return ended;
}

void DaemonSite::waitGone(pid_t pid) {
  for (int k = 0; k < 50 && waitpid(pid, nullptr, WNOHANG) != pid && kill(pid, 0) == 0; ++k) usleep(100000);
}

const DaemonSite::Message* DaemonSite::findLog(const std::string& text, pid_t other, int seconds) {
  auto match = [&](const Message& m) { return m.pid != other && m.text.find(text) != std::string::npos; };
  for (const Message& m : messages_)
    if (match(m)) return &m;
  char buf[2048];
  // With no time to wait, takes in only what has come already.
  for (auto end = Clock::now() + std::chrono::seconds(seconds);;) {
    struct pollfd p = {logFd_, POLLIN, 0};
    ssize_t n = poll(&p, 1, seconds > 0 ? 100 : 0) > 0 ? recv(logFd_, buf, sizeof buf, 0) : 0;
    if (n <= 0 && Clock::now() >= end) break;
    std::string line(buf, n > 0 ? n : 0);  // "<pri>Mmm dd hh:mm:ss name[pid]: text"
    const size_t colon = line.find("]: "), open = line.rfind('[', colon);
    if (colon == std::string::npos || open == std::string::npos) continue;
    messages_.push_back({atoi(line.c_str() + open + 1), line.substr(colon + 3)});
    if (match(messages_.back())) return &messages_.back();
  }
  return nullptr;
}

std::string DaemonSite::waitLog(const std::string& text, int seconds) {
  const Message* m = findLog(text, 0, seconds);
  return m ? m->text : "";
}

pid_t DaemonSite::waitLogPid(const std::string& text, pid_t other, int seconds) {
  const Message* m = findLog(text, other, seconds);
  return m ? m->pid : -1;
}

size_t DaemonSite::countLog(const std::string& text) {
  findLog("\x01", 0, 1);  // takes in whatever has come: no message holds that byte
  size_t n = 0;
  for (const Message& m : messages_) n += m.text.find(text) != std::string::npos;
  return n;
}

bool DaemonSite::waitDaemonExit() {
  for (auto end = Clock::now() + std::chrono::seconds(10); Clock::now() < end; usleep(50000))
    if (waitpid(-1, nullptr, WNOHANG) > 0) return true;
  return false;
}

std::vector<DaemonSite::Report> DaemonSite::reports(size_t n, double seconds) {
  std::vector<Report> out;
  for (auto end = Clock::now() + std::chrono::duration<double>(seconds);; usleep(50000)) {
    out.clear();
    // "<station>.<pid>"; a report being written starts with "."
    for (const auto& file : ScratchSite::files(dir() + "/reports")) {
      Report r{{"pid", file.first.substr(file.first.rfind('.') + 1)}};
      std::istringstream in(file.second);
      for (std::string line; std::getline(in, line);)
        if (line.find('=') != std::string::npos) r[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
      out.push_back(r);
    }
    if (out.size() >= n || Clock::now() >= end) return out;
  }
}
