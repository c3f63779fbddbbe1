// Test support for the remote-procedure parts: a real rpcbind of the test's
// own and the test servers, each on a thread of the test process (Ingest's
// own service too: see live_service.h).
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
#include <time.h>
#include <unistd.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

namespace heron_test {

constexpr const char* kLoopback = "127.0.0.1";
constexpr unsigned long kModuleServerProgram = 0x20000001;

// The socket address of `address` (dotted), port `port`.
inline struct sockaddr_in loopback(const char* address, unsigned short port) {
  struct sockaddr_in a = {};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  inet_pton(AF_INET, address, &a.sin_addr);
  return a;
}

// A stream connection to 127.0.0.1:port from `from`, an address of the
// loopback network (so that a test can tell its connections apart); -1,
// with the reason on standard error, when it cannot be made.
int dialFrom(const char* from, unsigned short port);

inline bool rpcbindAnswers() {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in sin = loopback(kLoopback, 111);
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

// A system number whose ingest program (INGEST_PROG + number) no other test
// process running now uses.
inline int testSystemNumber() { return 1000 + static_cast<int>(getpid() % 1000000); }

// Withdraws a program's version-1 registration (after a crash on purpose).
inline void withdrawProgram(unsigned long prog) { rpcb_unset(static_cast<rpcprog_t>(prog), 1, nullptr); }

// One raw sample of chan holding `value`, as a live server sends it: the
// time tag (milliseconds of the day, now), the channel, the length 4 and
// the value, all big-endian.
inline std::string nowSample(int chan, uint32_t value) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  const uint32_t ms = static_cast<uint32_t>((ts.tv_sec % 86400) * 1000 + ts.tv_nsec / 1000000);
  std::string s;
  const auto put = [&s](uint32_t w) {
    for (int shift = 24; shift >= 0; shift -= 8) s.push_back(static_cast<char>(w >> shift));
  };
  put(ms);
  s += {static_cast<char>(chan), 4};
  put(value);
  return s;
}

// A server of the test's own on a thread of the test process, listening on
// 127.0.0.1 and registered with the test's rpcbind as version 1 of `prog`.
// Mode "env" is the module server's environment look-up (GETTERNSERVERENV),
// answered from `env`: NAME=VALUE, or NAME:N for a value of N letters "x"
// (a variable it does not have reads as ""; other procedures are refused).
// The other modes answer every call badly (support/rpc_servers.cc lists
// them).  The destructor withdraws the registration.
class TestServer {
 public:
  TestServer(unsigned long prog, const std::string& mode, const std::vector<std::string>& env = {});
  ~TestServer();
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }
  // Stops serving and closes every connection, leaving the registration
  // behind as a crash would.
  void crash() { halt(); }

 private:
  bool halt();
  void serve();

  const unsigned long prog_;
  const std::string mode_;
  std::map<std::string, std::string> env_;
  std::string error_;
  int listen_ = -1, stop_ = -1;
  std::thread thread_;
};

// The test acquisition-module server, answering getternserverenv.
struct TestModuleServer : TestServer {
  explicit TestModuleServer(const std::vector<std::string>& env = {}) : TestServer(kModuleServerProgram, "env", env) {}
};

// A server of program prog that fails in the way `mode` says.
struct FaultyServer : TestServer {
  FaultyServer(unsigned long prog, const std::string& mode) : TestServer(prog, mode) {}
};

}  // namespace heron_test

#endif
