// Dump throughput through a pseudo-terminal: runs serial_ingest -H (or -O)
// on a pty, writes N megabytes into it as fast as the line takes them, and
// reports MB/s and serial_ingest's CPU seconds per MB.
//
//   dump_throughput_bench SERIAL_INGEST [-O|-H] [megabytes]
#include <fcntl.h>
#include <pty.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <vector>

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s SERIAL_INGEST [-O|-H] [megabytes]\n", argv[0]);
    return 1;
  }
  const char* mode = argc > 2 ? argv[2] : "-H";
  long mb = argc > 3 ? atol(argv[3]) : 16;
  int master, slave;
  char name[64];
  if (openpty(&master, &slave, name, nullptr, nullptr) < 0) return perror("openpty"), 1;
  struct termios raw;
  tcgetattr(slave, &raw);
  cfmakeraw(&raw);
  tcsetattr(slave, TCSANOW, &raw);

  pid_t pid = fork();
  if (pid == 0) {
    int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, 1);
    dup2(devnull, 2);
    close(master);
    close(slave);
    execl(argv[1], argv[1], "-L", mode, "-d", name, (char*)nullptr);
    _exit(127);
  }
  for (int i = 0; i < 500; ++i) {  // wait until the port is configured
    struct termios t;
    if (tcgetattr(slave, &t) == 0 && t.c_cc[VMIN] == 128) break;
    usleep(10000);
  }
  std::vector<char> block(65536);
  for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 131 + 7);
  struct timespec t0, t1;
  clock_gettime(CLOCK_MONOTONIC, &t0);
  long total = mb * 1024 * 1024;
  for (long sent = 0; sent < total;) {
    ssize_t k = write(master, block.data(), block.size());
    if (k < 0) return perror("write"), 1;
    sent += k;
  }
  usleep(200000);
  close(slave);
  close(master);
  int status;
  struct rusage ru;
  wait4(pid, &status, 0, &ru);
  clock_gettime(CLOCK_MONOTONIC, &t1);
  double secs = (t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9 - 0.2;
  double cpu = ru.ru_utime.tv_sec + ru.ru_utime.tv_usec / 1e6 + ru.ru_stime.tv_sec + ru.ru_stime.tv_usec / 1e6;
  printf("%s %ld MB in %.3f s: %.1f MB/s, serial_ingest CPU %.3f s/MB\n", mode, mb, secs, mb / secs, cpu / mb);
  return 0;
}
