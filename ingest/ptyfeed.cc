// ptyfeed: plays a file into a pseudo-terminal and runs a program on the
// other end, so serial_ingest can be tried without an instrument:
//
//   ptyfeed [-r bytes_per_second] FILE PROGRAM ARGS...
//
// Every argument "%s" is replaced by the terminal's device name.  The file is
// written once the program has had a moment to open and configure the port;
// then the line is hung up and ptyfeed ends with the program's exit status.
#include <errno.h>
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {
[[noreturn]] void die(const char* what) {
  fprintf(stderr, "ptyfeed: %s: %s\n", what, strerror(errno));
  exit(1);
}

void sleepSeconds(double s) {
  struct timespec ts;
  ts.tv_sec = static_cast<time_t>(s);
  ts.tv_nsec = static_cast<long>((s - ts.tv_sec) * 1e9);
  while (nanosleep(&ts, &ts) < 0 && errno == EINTR) {
  }
}

void writeAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t k = write(fd, p, n);
    if (k < 0) {
      if (errno == EINTR) continue;
      die("write");
    }
    p += k;
    n -= k;
  }
}
}  // namespace

int main(int argc, char** argv) {
  double rate = 9600.0 / 10;  // bytes per second of a 9600-baud line
  int opt;
  while ((opt = getopt(argc, argv, "+r:")) != -1) {
    if (opt == 'r' && atof(optarg) > 0) {
      rate = atof(optarg);
    } else {
      fprintf(stderr, "Usage: %s [-r bytes_per_second] FILE PROGRAM ARGS...\n", argv[0]);
      return 1;
    }
  }
  if (argc - optind < 2) {
    fprintf(stderr, "Usage: %s [-r bytes_per_second] FILE PROGRAM ARGS...\n", argv[0]);
    return 1;
  }
  FILE* in = fopen(argv[optind], "rb");
  if (!in) die(argv[optind]);

  int master, slave;
  char name[128];
  if (openpty(&master, &slave, name, nullptr, nullptr) < 0) die("openpty");
  // Raw from the start, so bytes written before the program configures the
  // port are neither echoed nor translated.
  struct termios raw;
  if (tcgetattr(slave, &raw) < 0) die("tcgetattr");
  cfmakeraw(&raw);
  if (tcsetattr(slave, TCSANOW, &raw) < 0) die("tcsetattr");

  std::vector<std::string> args;
  for (int i = optind + 1; i < argc; ++i) args.push_back(strcmp(argv[i], "%s") == 0 ? name : argv[i]);
  pid_t pid = fork();
  if (pid < 0) die("fork");
  if (pid == 0) {
    close(master);
    close(slave);
    std::vector<char*> cargs;
    for (std::string& a : args) cargs.push_back(&a[0]);
    cargs.push_back(nullptr);
    execvp(cargs[0], cargs.data());
    fprintf(stderr, "ptyfeed: %s: %s\n", cargs[0], strerror(errno));
    _exit(127);
  }
  sleepSeconds(0.5);

  char buf[64];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, in)) > 0) {
    writeAll(master, buf, n);
    sleepSeconds(n / rate);
  }
  fclose(in);
  sleepSeconds(0.2);  // let the line take in the last bytes before hanging up
  close(slave);
  close(master);

  int status;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) die("waitpid");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
