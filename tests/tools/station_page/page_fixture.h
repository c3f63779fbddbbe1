// The real station_page for a test: started with the test's own options,
// its port read from its first log line, ended by its pid (SIGTERM) when
// the object goes.  And plain HTTP over loopback sockets, from a chosen
// source address, so a test can tell its own connections apart.
#ifndef HERON_TESTS_STATION_PAGE_FIXTURE_H
#define HERON_TESTS_STATION_PAGE_FIXTURE_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/rpc_fixture.h"

// What fd gives until it ends, or until `stop` is in it, or `seconds` pass.
inline std::string readAll(int fd, double seconds, const std::string& stop = "") {
  std::string got;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  char buf[4096];
  for (ssize_t n = 1; n > 0 && (stop.empty() || got.find(stop) == std::string::npos) && std::chrono::steady_clock::now() < end;) {
    struct pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 100) == 1 && (n = read(fd, buf, sizeof buf)) > 0) got.append(buf, static_cast<size_t>(n));
  }
  return got;
}

class PageProcess {
 public:
  explicit PageProcess(std::vector<std::string> args) {
    args.insert(args.begin(), {STATION_PAGE_BIN, "-p", "0"});
    int err[2];
    if (pipe2(err, O_CLOEXEC) != 0 || (pid_ = fork()) < 0) return;
    if (pid_ == 0) {
      dup2(err[1], 2);
      std::vector<char*> argv;
      for (auto& a : args) argv.push_back(&a[0]);
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(err[1]);
    log_ = readAll(logFd_ = err[0], 10, "\n");
    const size_t at = log_.find("listening on 127.0.0.1:");
    if (at != std::string::npos) port_ = static_cast<unsigned short>(std::stoi(log_.substr(at + 23)));
  }
  ~PageProcess() {
    if (pid_ > 0 && kill(pid_, SIGTERM) == 0) waitpid(pid_, nullptr, 0);
    if (logFd_ >= 0) close(logFd_);
  }
  unsigned short port() const { return port_; }
  // Its log so far.
  std::string log() { return log_ += readAll(logFd_, 0.2); }

 private:
  pid_t pid_ = -1;
  int logFd_ = -1;
  unsigned short port_ = 0;
  std::string log_;
};

// One request's whole reply; a path alone is sent as a plain GET.
inline std::string exchange(unsigned short port, std::string request, const char* source = "127.0.0.1") {
  if (request[0] == '/') request = "GET " + request + " HTTP/1.1\r\nHost: station\r\nConnection: close\r\n\r\n";
  const int fd = heron_test::dialFrom(source, port);
  std::string reply;
  if (fd >= 0 && send(fd, request.data(), request.size(), MSG_NOSIGNAL) == ssize_t(request.size())) reply = readAll(fd, 10);
  if (fd >= 0) close(fd);
  return reply;
}

#endif
