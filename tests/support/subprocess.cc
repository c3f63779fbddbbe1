#include "support/subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

RunResult runProgram(const std::vector<std::string>& argv, const std::string& input,
                     const std::vector<std::string>& env) {
  int inp[2], outp[2], errp[2];
  RunResult r;
  if (pipe2(inp, O_CLOEXEC) || pipe2(outp, O_CLOEXEC) || pipe2(errp, O_CLOEXEC)) return r;
  pid_t pid = fork();
  if (pid == 0) {
    dup2(inp[0], 0);
    dup2(outp[1], 1);
    dup2(errp[1], 2);
    for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  close(inp[0]);
  close(outp[1]);
  close(errp[1]);
  if (!input.empty()) {
    ssize_t ignored = write(inp[1], input.data(), input.size());
    (void)ignored;
  }
  close(inp[1]);
  struct pollfd fds[2] = {{outp[0], POLLIN, 0}, {errp[0], POLLIN, 0}};
  int open = 2;
  char buf[4096];
  while (open > 0 && poll(fds, 2, -1) > 0) {
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
      ssize_t n = read(fds[i].fd, buf, sizeof buf);
      if (n <= 0) {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      } else {
        (i == 0 ? r.out : r.err).append(buf, n);
      }
    }
  }
  int status;
  waitpid(pid, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return r;
}
