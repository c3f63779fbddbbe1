// Test support for the remote-procedure parts: a real rpcbind on 127.0.0.1
// and the test servers (built beside the test programs) as child processes.
//
//   std::string why = heron_test::ensureRpcbind();
//   ASSERT_EQ(why, "");
//   heron_test::TestModuleServer server({"PROJECT=p", "OPS=o"});
//   ASSERT_TRUE(server.ok()) << server.error();
//   setenv("CONFIG_SERVER", "127.0.0.1", 1);   // then getTernServerEnvVar(...)
//
// rpcbind is a system service: when none answers, ensureRpcbind starts one the
// way the system would (as a daemon) and leaves it running for the test
// processes that follow.  The acquisition-module server has one fixed program
// number, so TestModuleServer (and anything else posing as that server) holds
// an exclusive lock across processes while it is registered; tests running in
// parallel take turns.
#ifndef HERON_TESTS_RPC_FIXTURE_H
#define HERON_TESTS_RPC_FIXTURE_H

#include <arpa/inet.h>
#include <errno.h>
#include <rpc/rpc.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace heron_test {

// Where rpcbind and the test servers listen.
constexpr const char* kLoopback = "127.0.0.1";

// An exclusive lock on a file in /tmp, shared by every test process.
class FileLock {
 public:
  // A null path takes no lock (and counts as held).
  explicit FileLock(const char* path) {
    if (path == nullptr) {
      fd_ = -2;
      return;
    }
    fd_ = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd_ < 0) return;
    while (flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        close(fd_);
        fd_ = -1;
        return;
      }
    }
  }
  ~FileLock() {
    if (fd_ >= 0) close(fd_);
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  bool held() const { return fd_ != -1; }

 private:
  int fd_ = -1;
};

// True when something accepts TCP connections on 127.0.0.1:port.
inline bool tcpPortAnswers(unsigned short port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_port = htons(port);
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bool ok = connect(fd, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) == 0;
  close(fd);
  return ok;
}

inline void sleepMillis(int ms) {
  struct timespec ts = {ms / 1000, (ms % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

// Makes sure rpcbind answers on 127.0.0.1; starts it (as a daemon, left
// running) when it does not.  Returns "" on success, else what went wrong.
inline std::string ensureRpcbind() {
  if (tcpPortAnswers(111)) return "";
  FileLock lock("/tmp/heron-test-rpcbind.lock");
  if (!lock.held()) return std::string("cannot lock /tmp/heron-test-rpcbind.lock: ") + strerror(errno);
  if (tcpPortAnswers(111)) return "";  // another test process started it meanwhile
  pid_t pid = fork();
  if (pid < 0) return std::string("fork: ") + strerror(errno);
  if (pid == 0) {
    // -w: keep registrations across restarts.  rpcbind puts itself in the
    // background once its sockets are ready.
    execl("/usr/sbin/rpcbind", "rpcbind", "-w", static_cast<char*>(nullptr));
    execl("/sbin/rpcbind", "rpcbind", "-w", static_cast<char*>(nullptr));
    execlp("rpcbind", "rpcbind", "-w", static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return std::string("waitpid: ") + strerror(errno);
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    return "rpcbind did not start (is it installed, and are we root?)";
  for (int i = 0; i < 200; ++i) {  // it is normally up at once; allow 10 s
    if (tcpPortAnswers(111)) return "";
    sleepMillis(50);
  }
  return "rpcbind started but does not answer on 127.0.0.1:111";
}

// Path of a program built beside the running test program (or in
// $HERON_TEST_SERVER_DIR when that is set).
inline std::string testProgramPath(const char* name) {
  const char* dir = getenv("HERON_TEST_SERVER_DIR");
  if (dir != nullptr) return std::string(dir) + "/" + name;
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return name;
  self[n] = '\0';
  std::string path(self);
  return path.substr(0, path.rfind('/') + 1) + name;
}

// A test server run as a child process, registering with the rpcbind on
// 127.0.0.1 (started when needed).  The constructor returns once the server
// has printed its "ready" line (or failed); the destructor stops it
// with SIGTERM, which makes it withdraw its rpcbind registration.
class ServerProcess {
 public:
  ServerProcess(const std::string& program, const std::vector<std::string>& args) { start(program, args); }
  ~ServerProcess() { stop(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool ok() const { return pid_ > 0 && error_.empty(); }
  const std::string& error() const { return error_; }
  pid_t pid() const { return pid_; }

  // Stops the server now (also done by the destructor).
  void stop() { end(SIGTERM); }

  // Kills the server without letting it withdraw its registration, as a
  // crash would.
  void crash() { end(SIGKILL); }

 private:
  void end(int sig) {
    if (pid_ <= 0) return;
    kill(pid_, sig);
    int status;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
  }

  void start(const std::string& program, const std::vector<std::string>& args) {
    error_ = ensureRpcbind();
    if (!error_.empty()) return;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
      error_ = std::string("pipe: ") + strerror(errno);
      return;
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
      error_ = std::string("fork: ") + strerror(errno);
      close(fds[0]);
      close(fds[1]);
      return;
    }
    if (pid_ == 0) {
      // A server must not outlive a test program that crashed.
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (getppid() != parent) _exit(1);
      dup2(fds[1], 1);  // dup2 clears close-on-exec on the copy
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    close(fds[1]);
    std::string line;
    // A guard against a server that hangs, not a measure of speed.
    for (int waited = 0; line.find('\n') == std::string::npos;) {
      struct pollfd p = {fds[0], POLLIN, 0};
      int n = poll(&p, 1, 100);
      if (n < 0 && errno == EINTR) continue;
      if (n == 0) {
        if ((waited += 100) >= 20000) break;
        continue;
      }
      char buf[64];
      ssize_t got = read(fds[0], buf, sizeof buf);
      if (got <= 0) break;
      line.append(buf, static_cast<size_t>(got));
    }
    close(fds[0]);
    if (line.compare(0, 6, "ready\n") != 0) {
      error_ = program + " did not report ready (see its messages above)";
      stop();
    }
  }

  pid_t pid_ = -1;
  std::string error_;
};

// Lock held while anything is registered as the acquisition-module server.
inline const char* moduleServerLockPath() { return "/tmp/heron-test-ternserver.lock"; }

// The test acquisition-module server, registered with rpcbind on 127.0.0.1,
// answering getternserverenv from the NAME=VALUE pairs given here.
class TestModuleServer {
 public:
  explicit TestModuleServer(const std::vector<std::string>& env = {})
      : lock_(moduleServerLockPath()), server_(testProgramPath("ternserver_test_server"), env) {}
  bool ok() const { return lock_.held() && server_.ok(); }
  std::string error() const {
    return lock_.held() ? server_.error() : std::string("cannot lock ") + moduleServerLockPath();
  }

 private:
  FileLock lock_;
  ServerProcess server_;
};

// A system number whose ingest program (INGEST_PROG + number) no other test
// process running now uses.
inline int testSystemNumber() { return 1000 + static_cast<int>(getpid() % 1000000); }

// Withdraws a program's version-1 registration from rpcbind (after a test
// server was crashed on purpose).
inline void withdrawProgram(unsigned long prog) { rpcb_unset(static_cast<rpcprog_t>(prog), 1, nullptr); }

// The test ingest server of acquisition system `number`; options as its
// command line takes them ("--no-connect-back").
class TestIngestServer : public ServerProcess {
 public:
  explicit TestIngestServer(int number, std::vector<std::string> options = {})
      : ServerProcess(testProgramPath("ingest_test_server"), withNumber(number, std::move(options))) {}

 private:
  static std::vector<std::string> withNumber(int number, std::vector<std::string> options) {
    options.insert(options.begin(), std::to_string(number));
    return options;
  }
};

// A server that answers calls to `prog` badly: mode "garbage", "truncated" or
// "hangup" (see tests/lib/rpc/rpc_junk_server.cc).  Posing as the module server
// takes the module-server lock.
class JunkServer {
 public:
  JunkServer(unsigned long prog, const char* mode)
      : lock_(prog == 0x20000001 ? moduleServerLockPath() : nullptr),
        server_(testProgramPath("rpc_junk_server"), {std::to_string(prog), mode}) {}
  bool ok() const { return lock_.held() && server_.ok(); }
  std::string error() const { return lock_.held() ? server_.error() : "cannot take the server lock"; }

 private:
  FileLock lock_;
  ServerProcess server_;
};

}  // namespace heron_test

#endif
