// Test support for the remote-procedure parts: a real rpcbind of the test's
// own and the test servers (built beside the test programs) as child processes.
// Ingest's own service runs in the test's process: see live_service.h.
//
//   HERON_REQUIRE_RPCBIND();                   // first, in the test body
//   heron_test::TestModuleServer server({"PROJECT=p", "OPS=o"});
//   ASSERT_TRUE(server.ok()) << server.error();
//   setenv("CONFIG_SERVER", "127.0.0.1", 1);   // then getTernServerEnvVar(...)
//
// A test never registers with the machine's rpcbind: the first call of
// ensureRpcbind moves the whole test process into a network namespace and a
// mount namespace of its own, with a private /run (where rpcbind keeps its
// local socket and lock), brings its loopback up and starts rpcbind there as
// a child that dies with the test.  Everything the test starts afterwards
// inherits that network, so tests running in parallel, the demo and a real
// station on the same computer never see each other's program numbers.
// Making namespaces needs root; elsewhere the tests that need rpcbind skip.
#ifndef HERON_TESTS_RPC_FIXTURE_H
#define HERON_TESTS_RPC_FIXTURE_H

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <net/if.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace heron_test {

constexpr const char* kLoopback = "127.0.0.1";
constexpr unsigned long kModuleServerProgram = 0x20000001;

inline bool rpcbindAnswers() {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in sin = {};
  sin.sin_family = AF_INET;
  sin.sin_port = htons(111);
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bool ok = fd >= 0 && connect(fd, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) == 0;
  if (fd >= 0) close(fd);
  return ok;
}

// Why this process cannot have a network of its own ("" when it can).
inline std::string rpcbindSkipReason() {
  return geteuid() == 0 ? "" : "a private rpcbind needs network and mount namespaces, so root";
}

// The namespaces and the loopback; "" on success, else what failed.
inline std::string enterPrivateNetwork() {
  if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0) return std::string("unshare: ") + strerror(errno);
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/run", "tmpfs", 0, "mode=755") != 0)
    return std::string("a private /run: ") + strerror(errno);
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  struct ifreq ifr = {};
  strcpy(ifr.ifr_name, "lo");
  bool up = fd >= 0 && ioctl(fd, SIOCGIFFLAGS, &ifr) == 0 && (ifr.ifr_flags |= IFF_UP, ioctl(fd, SIOCSIFFLAGS, &ifr) == 0);
  const int err = errno;
  if (fd >= 0) close(fd);
  return up ? "" : std::string("loopback up: ") + strerror(err);
}

// rpcbind gives up root for its own user, which clears the signal it would
// get at its parent's death; so a warden that stays root starts it and, at
// the test's end (however it ends), kills it.
[[noreturn]] inline void rpcbindWarden(pid_t test) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGCHLD);
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0 || prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != test)
    _exit(1);
  const pid_t rpcbind = fork();
  if (rpcbind == 0) {
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    // -f: in the foreground, the warden's child.
    execl("/usr/sbin/rpcbind", "rpcbind", "-f", static_cast<char*>(nullptr));
    execlp("rpcbind", "rpcbind", "-f", static_cast<char*>(nullptr));
    _exit(127);
  }
  int sig = 0;
  if (rpcbind > 0) sigwait(&set, &sig);
  if (rpcbind > 0) kill(rpcbind, SIGKILL);
  _exit(0);
}

// Makes sure this test process has its own rpcbind answering on 127.0.0.1.
// Returns "" on success, else what went wrong.
inline std::string ensureRpcbind() {
  static std::string error = [] {
    std::string why = rpcbindSkipReason();
    if (why.empty()) why = enterPrivateNetwork();
    if (!why.empty()) return why;
    const pid_t test = getpid();
    const pid_t warden = fork();
    if (warden == 0) rpcbindWarden(test);
    if (warden < 0) return std::string("fork: ") + strerror(errno);
    for (int i = 0; i < 200; ++i, usleep(20000)) {  // normally up at once; allow 4 s
      if (rpcbindAnswers()) return std::string();
      if (waitpid(warden, nullptr, WNOHANG) == warden) return std::string("rpcbind ended at once (is it installed?)");
    }
    return std::string("rpcbind started but does not answer on 127.0.0.1:111");
  }();
  return error;
}

}  // namespace heron_test

// In a test body, before anything that needs rpcbind: skips the test, with
// the reason, where no private rpcbind can be had, and fails it where one
// should start but does not.
#define HERON_REQUIRE_RPCBIND()                                                     \
  do {                                                                              \
    const std::string heron_skip_ = heron_test::rpcbindSkipReason();                 \
    if (!heron_skip_.empty()) GTEST_SKIP() << heron_skip_;                          \
    ASSERT_EQ(heron_test::ensureRpcbind(), "");                                     \
  } while (0)

namespace heron_test {

// Path of a program built beside the running test program.
inline std::string testProgramPath(const char* name) {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  std::string path(self, n > 0 ? static_cast<size_t>(n) : 0);
  return path.substr(0, path.rfind('/') + 1) + name;
}

// A test server run as a child process.  The constructor returns once the
// server has printed its "ready" line (or failed); the destructor stops it
// with SIGTERM, which makes it withdraw its rpcbind registration.
class ServerProcess {
 public:
  ServerProcess(const std::string& program, const std::vector<std::string>& args) : error_(ensureRpcbind()) {
    if (error_.empty()) start(program, args);
  }
  ~ServerProcess() { end(SIGTERM); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool ok() const { return pid_ > 0 && error_.empty(); }
  const std::string& error() const { return error_; }
  // Kills the server without letting it withdraw its registration, as a
  // crash would.
  void crash() { end(SIGKILL); }

 private:
  void end(int sig) {
    if (pid_ <= 0) return;
    kill(pid_, sig);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
  }

  void start(const std::string& program, const std::vector<std::string>& args) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return void(error_ = std::string("pipe: ") + strerror(errno));
    std::vector<char*> argv = {const_cast<char*>(program.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
      // A server must not outlive a test program that crashed.
      if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != parent) _exit(1);
      dup2(fds[1], 1);  // the copy is not close-on-exec
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    close(fds[1]);
    std::string line;
    struct pollfd p = {fds[0], POLLIN, 0};
    char buf[64];
    ssize_t got;
    // The time-out guards against a server that hangs; it measures nothing.
    while (line.find('\n') == std::string::npos && poll(&p, 1, 20000) == 1 && (got = read(fds[0], buf, sizeof buf)) > 0)
      line.append(buf, static_cast<size_t>(got));
    close(fds[0]);
    if (pid_ < 0 || line != "ready\n") {
      error_ = program + " did not report ready (see its messages above)";
      end(SIGTERM);
    }
  }

  pid_t pid_ = -1;
  std::string error_;
};

// The test acquisition-module server, answering getternserverenv from the
// NAME=VALUE pairs given here.
class TestModuleServer : public ServerProcess {
 public:
  explicit TestModuleServer(const std::vector<std::string>& env = {})
      : ServerProcess(testProgramPath("ternserver_test_server"), env) {}
};

// A system number whose ingest program (INGEST_PROG + number) no other test
// process running now uses.
inline int testSystemNumber() { return 1000 + static_cast<int>(getpid() % 1000000); }

// Withdraws a program's version-1 registration (after a crash on purpose).
inline void withdrawProgram(unsigned long prog) { rpcb_unset(static_cast<rpcprog_t>(prog), 1, nullptr); }

// The ingest server's failure `mode` (lib/rpc/ingest_test_server.cc lists
// them), registered as program prog.
class FaultyServer : public ServerProcess {
 public:
  FaultyServer(unsigned long prog, const std::string& mode)
      : ServerProcess(testProgramPath("ingest_test_server"), {std::to_string(prog), "--reply=" + mode}) {}
};

}  // namespace heron_test

#endif
