// Test support for the remote-procedure parts: a real rpcbind on 127.0.0.1
// and the test servers (built beside the test programs) as child processes.
//
//   heron_test::TestModuleServer server({"PROJECT=p", "OPS=o"});
//   ASSERT_TRUE(server.ok()) << server.error();
//   setenv("CONFIG_SERVER", "127.0.0.1", 1);   // then getTernServerEnvVar(...)
//
// rpcbind is a system service: when none answers, ensureRpcbind starts one the
// way the system would (as a daemon) and leaves it running for the test
// processes that follow.  The acquisition-module server has one fixed program
// number, so whatever poses as it holds an exclusive lock across processes
// while it is registered; tests running in parallel take turns.
#ifndef HERON_TESTS_RPC_FIXTURE_H
#define HERON_TESTS_RPC_FIXTURE_H

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace heron_test {

constexpr const char* kLoopback = "127.0.0.1";
constexpr unsigned long kModuleServerProgram = 0x20000001;
// Held by whatever is registered as the module server.
constexpr const char* kModuleServerLock = "/tmp/heron-test-ternserver.lock";

// An exclusive lock on a file in /tmp, shared by every test process; a null
// path takes none (and counts as held).
class FileLock {
 public:
  explicit FileLock(const char* path) : fd_(path ? open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666) : -2) {
    while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0)
      if (errno != EINTR) fd_ = (close(fd_), -1);
  }
  ~FileLock() {
    if (fd_ >= 0) close(fd_);  // closing releases the lock
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  bool held() const { return fd_ != -1; }

 private:
  int fd_;
};

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

// Makes sure rpcbind answers on 127.0.0.1, starting it when it does not.
// Returns "" on success, else what went wrong.
inline std::string ensureRpcbind() {
  if (rpcbindAnswers()) return "";
  FileLock lock("/tmp/heron-test-rpcbind.lock");
  if (rpcbindAnswers()) return "";  // another test process started it meanwhile
  pid_t pid = fork();
  if (pid == 0) {
    // -w: keep registrations across restarts.  rpcbind goes into the
    // background once its sockets are ready.
    execl("/usr/sbin/rpcbind", "rpcbind", "-w", static_cast<char*>(nullptr));
    execlp("rpcbind", "rpcbind", "-w", static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || status != 0)
    return "rpcbind did not start (is it installed, and are we root?)";
  for (int i = 0; i < 200; ++i, usleep(50000))  // normally up at once; allow 10 s
    if (rpcbindAnswers()) return "";
  return "rpcbind started but does not answer on 127.0.0.1:111";
}

// Path of a program built beside the running test program.
inline std::string testProgramPath(const char* name) {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  std::string path(self, n > 0 ? static_cast<size_t>(n) : 0);
  return path.substr(0, path.rfind('/') + 1) + name;
}

// A test server run as a child process.  The constructor returns once the
// server has printed its "ready" line (or failed); the destructor stops it
// with SIGTERM, which makes it withdraw its rpcbind registration.  A server
// that takes the module server's program first takes the module-server lock.
class ServerProcess {
 public:
  ServerProcess(const std::string& program, const std::vector<std::string>& args, bool moduleServer = false)
      : lock_(moduleServer ? kModuleServerLock : nullptr) {
    error_ = lock_.held() ? ensureRpcbind() : "cannot take the module-server lock";
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

  FileLock lock_;
  pid_t pid_ = -1;
  std::string error_;
};

// The test acquisition-module server, answering getternserverenv from the
// NAME=VALUE pairs given here.
class TestModuleServer : public ServerProcess {
 public:
  explicit TestModuleServer(const std::vector<std::string>& env = {})
      : ServerProcess(testProgramPath("ternserver_test_server"), env, true) {}
};

// A system number whose ingest program (INGEST_PROG + number) no other test
// process running now uses.
inline int testSystemNumber() { return 1000 + static_cast<int>(getpid() % 1000000); }

// Withdraws a program's version-1 registration (after a crash on purpose).
inline void withdrawProgram(unsigned long prog) { rpcb_unset(static_cast<rpcprog_t>(prog), 1, nullptr); }

// The test ingest server of acquisition system `number`; option
// "--no-connect-back", "--stranger" or none.
class TestIngestServer : public ServerProcess {
 public:
  explicit TestIngestServer(int number, std::vector<std::string> options = {})
      : ServerProcess(testProgramPath("ingest_test_server"),
                      (options.insert(options.begin(), std::to_string(number)), options)) {}
};

}  // namespace heron_test

#endif
