// The real station_page for a test: started with the test's own options,
// its port read from its first log line, ended by its pid (SIGTERM) when
// the object goes.  And plain HTTP over loopback sockets, from a chosen
// source address, so a test can tell its own connections apart.
#ifndef HERON_TESTS_STATION_PAGE_FIXTURE_H
#define HERON_TESTS_STATION_PAGE_FIXTURE_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <string>
#include <vector>

class PageProcess {
 public:
  explicit PageProcess(std::vector<std::string> args) {
    args.insert(args.begin(), {STATION_PAGE_BIN, "-p", "0"});
    int err[2];
    if (pipe2(err, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(err[1], 2);
      std::vector<char*> argv;
      for (auto& a : args) argv.push_back(&a[0]);
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(err[1]);
    log_ = err[0];
    std::smatch m;
    waitLog(std::regex("listening on [0-9.]+:([0-9]+)"), &m, 10);
    if (!m.empty()) port_ = static_cast<unsigned short>(std::stoi(m[1]));
  }
  ~PageProcess() {
    if (pid_ > 0 && kill(pid_, SIGTERM) == 0) waitpid(pid_, nullptr, 0);
    if (log_ >= 0) close(log_);
  }
  unsigned short port() const { return port_; }
  const std::string& log() const { return text_; }
  // Reads the log until it matches `re` or `seconds` pass.
  bool waitLog(const std::regex& re, std::smatch* m, double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (ssize_t n = 1; n != 0 && !std::regex_search(text_, *m, re) && std::chrono::steady_clock::now() < end;) {
      struct pollfd p = {log_, POLLIN, 0};
      char buf[512];
      if (poll(&p, 1, 100) == 1 && (n = read(log_, buf, sizeof buf)) > 0) text_.append(buf, static_cast<size_t>(n));
    }
    return !m->empty();
  }

 private:
  pid_t pid_ = -1;
  int log_ = -1;
  unsigned short port_ = 0;
  std::string text_;
};

// A TCP connection to 127.0.0.1:port from source (an address of the
// loopback network); -1 when it cannot be made.
inline int connectFrom(const char* source, unsigned short port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in from = {}, to = {};
  from.sin_family = to.sin_family = AF_INET;
  to.sin_port = htons(port);
  inet_pton(AF_INET, source, &from.sin_addr);
  inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
  if (fd >= 0 && (bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0 ||
                  connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0)) {
    close(fd);
    fd = -1;
  }
  return fd;
}

// What the connection sends until it closes or `seconds` pass.
inline std::string readAll(int fd, double seconds) {
  std::string got;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  char buf[4096];
  for (ssize_t n = 1; n > 0 && std::chrono::steady_clock::now() < end;) {
    struct pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 100) == 1 && (n = recv(fd, buf, sizeof buf, 0)) > 0) got.append(buf, static_cast<size_t>(n));
  }
  return got;
}

// One request's whole reply (the request is sent as given).
inline std::string exchange(unsigned short port, const std::string& request, const char* source = "127.0.0.1") {
  int fd = connectFrom(source, port);
  if (fd < 0) return "";
  std::string reply = send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())
                          ? readAll(fd, 10)
                          : "";
  close(fd);
  return reply;
}

inline std::string get(unsigned short port, const std::string& path, const char* source = "127.0.0.1") {
  return exchange(port, "GET " + path + " HTTP/1.1\r\nHost: station\r\nConnection: close\r\n\r\n", source);
}

// The status code of a reply, or 0.
inline int code(const std::string& reply) {
  return reply.compare(0, 9, "HTTP/1.1 ") == 0 ? std::atoi(reply.c_str() + 9) : 0;
}

#endif
