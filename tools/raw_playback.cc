// raw_playback: plays raw-sample files onto a serial line the way an
// acquisition module's fast output sends them (each sample followed by the
// end-of-message byte 3), paced by their time tags or as fast as the line
// takes them.
//
//   raw_playback [-n] [-v] [-s speed] [-g max_gap] [-B baud] -d DEVICE FILE...
//   raw_playback [-n] [-v] [-s speed] [-g max_gap] [-w secs] FILE... -- PROGRAM ARGS...
//
// The second form makes a pseudo-terminal, runs PROGRAM with every argument
// "%s" replaced by the terminal's name, plays the files into it, hangs the
// line up once the program has read everything, and ends with the
// program's exit status.  See raw_playback.1.
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <limits.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "base/Exception.h"
#include "base/clock.h"
#include "samples/Sample.h"
#include "port/TTy.h"
#include "base/logit.h"
#include "base/fatal.h"

namespace {

const char kUsage[] =
    "Usage: raw_playback [-n] [-v] [-s speed] [-g max_gap] [-B baud] -d DEVICE FILE...\n"
    "       raw_playback [-n] [-v] [-s speed] [-g max_gap] [-w secs] FILE... -- PROGRAM ARGS...\n"
    "  -n        no pacing: as fast as the line takes the bytes\n"
    "  -s speed  play speed-times faster than the time tags say (default 1)\n"
    "  -g secs   longest pause played as it is; longer gaps are skipped (default 5)\n"
    "  -B baud   line speed of DEVICE (default 9600; 23040 means 230400)\n"
    "  -d DEVICE play onto this serial port\n"
    "  -w secs   time PROGRAM has to set the terminal up before playing (default 0.5)\n"
    "  -v, --verbose  also the library's information lines (files opened)\n"
    "  -h, --help, --version\n"
    "FILE \"-\" is standard input.\n";

const char kEOM = 3;

// Bounds of -s and of -g and -w: a second plays in at most 1000 seconds and
// at least a microsecond, and no pause is longer than a day.
const double kMinSpeed = 0.001, kMaxSpeed = 1e6, kMaxSeconds = 86400;

[[noreturn]] void die(const char* what) {
  fprintf(stderr, "raw_playback: %s: %s\n", what, strerror(errno));
  exit_status_1();
}

void sleepUntil(double when) {
  struct timespec ts;
  ts.tv_sec = static_cast<time_t>(when);
  ts.tv_nsec = static_cast<long>((when - static_cast<double>(ts.tv_sec)) * 1e9);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) == EINTR) {
    if (RawDataInput::interruptSet) return;
  }
}

void sleepSeconds(double s) { sleepUntil(heron::monotonicSeconds() + s); }

// The program on the other end of a pseudo-terminal, and its status once
// it has ended.
pid_t child = 0;
bool childEnded = false;
int childStatus = 0;

// True once the program has ended (it is reaped here).
bool programEnded() {
  if (child <= 0) return false;
  if (!childEnded && waitpid(child, &childStatus, WNOHANG) == child) childEnded = true;
  return childEnded;
}

// Writes everything, across partial writes; false (errno set) on failure.
// A descriptor may be non-blocking: then a full line is waited for, and
// given up (EPIPE) when the program reading it has ended.
bool writeAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t k = write(fd, p, n);
    if (k < 0) {
      if (errno == EINTR && !RawDataInput::interruptSet) continue;
      if (errno == EAGAIN) {
        struct pollfd pfd = {fd, POLLOUT, 0};
        if (poll(&pfd, 1, 200) < 0 && errno != EINTR) return false;
        if (RawDataInput::interruptSet) return errno = EINTR, false;
        if (programEnded()) return errno = EPIPE, false;
        continue;
      }
      return false;
    }
    p += k;
    n -= static_cast<size_t>(k);
  }
  return true;
}

struct Options {
  bool paced = true;
  double speed = 1.0;
  double maxGap = 5.0;
  int baud = 9600;
  const char* device = nullptr;
  double setupWait = 0.5;
  std::vector<char*> files;
  std::vector<std::string> program;
};

// A number from low to high (both included) in s, or a message and false.
// The bounds keep every later conversion to whole milliseconds, nanoseconds
// and time_t within range.
bool numberIn(const char* what, const char* s, double low, double high, double* out) {
  char* end;
  errno = 0;
  double v = strtod(s, &end);
  if (errno != 0 || end == s || *end != '\0' || !(v >= low && v <= high)) {
    fprintf(stderr, "raw_playback: bad %s \"%s\" (a number from %.10g to %.10g)\n%s", what, s, low, high, kUsage);
    return false;
  }
  *out = v;
  return true;
}

void writeFailed(long count) {
  if (childEnded)
    fprintf(stderr, "raw_playback: the program ended before the line took all samples (%ld read from the files)\n",
            count);
  else
    fprintf(stderr, "raw_playback: write: %s\n", strerror(errno));
}

// Plays the files onto fd; returns the number of samples written, or -1
// after reporting a failure.
long play(const Options& o, int fd) {
  std::vector<double> start(1, 0.0);
  std::vector<char*> files = o.files;
  std::unique_ptr<FilesRawDataInput> in;
  try {
    in.reset(new FilesRawDataInput(0, files, start));
  } catch (const oru::Exception& e) {
    fprintf(stderr, "raw_playback: %s\n", e.toString().c_str());
    return -1;
  }
  RawSample s;
  std::vector<char> out;
  out.reserve(65536);
  const long maxGapMs = static_cast<long>(o.maxGap * 1000.0);
  long count = 0;
  long prevMs = -1;
  double due = heron::monotonicSeconds();
  try {
    for (;;) {
      if (in->readSample(&s) != 1) continue;
      if (o.paced) {
        const long ms = s.Msecs();
        if (prevMs >= 0) {
          long d = ms - prevMs;
          if (d < -43200000L) d += 86400000L;  // midnight
          if (d > 0 && d <= maxGapMs) due += d / 1000.0 / o.speed;
        }
        prevMs = ms;
        if (due > heron::monotonicSeconds()) {
          if (!out.empty() && !writeAll(fd, out.data(), out.size())) break;
          out.clear();
          sleepUntil(due);
        }
      }
      const size_t at = out.size();
      out.resize(at + RawSample::headLen + s.len + 1);
      out[at + static_cast<size_t>(s.encode(&out[at]))] = kEOM;
      ++count;
      if (out.size() >= 60000) {
        if (!writeAll(fd, out.data(), out.size())) break;
        out.clear();
      }
    }
    writeFailed(count);
    return -1;
  } catch (const oru::EOFException&) {
    // The end of the last file (or the end-of-data marker).
  } catch (const oru::Exception& e) {
    fprintf(stderr, "raw_playback: %s\n", e.toString().c_str());
    return -1;
  }
  if (!out.empty() && !writeAll(fd, out.data(), out.size())) {
    writeFailed(count);
    return -1;
  }
  return count;
}

// Waits until the terminal's reader has taken every byte written to it (as
// far as the line discipline tells), at most about limit seconds.
void waitDrained(int slave, double limit) {
  int quiet = 0;
  for (double waited = 0; waited < limit && quiet < 5 && !programEnded(); waited += 0.02) {
    int n = 0;
    if (ioctl(slave, FIONREAD, &n) != 0) return;
    quiet = n == 0 ? quiet + 1 : 0;
    sleepSeconds(0.02);
  }
}

int playToDevice(const Options& o) {
  try {
    TTy tty(o.device);
    tty.open(O_WRONLY | O_NOCTTY | O_NONBLOCK, o.baud, "none", 8, 1, 1);
    tty.setblocking();
    struct termios raw = tty.attributes();
    cfmakeraw(&raw);
    tty.iflag() = raw.c_iflag;
    tty.oflag() = raw.c_oflag;
    tty.lflag() = raw.c_lflag;
    tty.cflag() = raw.c_cflag;
    tty.setflags();
    const long n = play(o, tty.fd());
    if (n < 0) return 1;
    if (tcdrain(tty.fd()) != 0) die("tcdrain");
    fprintf(stderr, "raw_playback: %ld samples played\n", n);
    return 0;
  } catch (const oru::Exception& e) {
    fprintf(stderr, "raw_playback: %s\n", e.toString().c_str());
    return 1;
  }
}

int playToProgram(const Options& o) {
  int master, slave;
  char name[128];
  if (openpty(&master, &slave, name, nullptr, nullptr) < 0) die("openpty");
  // Raw from the start, so bytes that arrive before the program sets the
  // terminal up are neither echoed nor translated.
  struct termios raw;
  if (tcgetattr(slave, &raw) < 0) die("tcgetattr");
  cfmakeraw(&raw);
  if (tcsetattr(slave, TCSANOW, &raw) < 0) die("tcsetattr");

  std::vector<std::string> args;
  for (const std::string& a : o.program) args.push_back(a == "%s" ? std::string(name) : a);
  if (fcntl(master, F_SETFL, O_NONBLOCK) != 0) die("fcntl");
  pid_t pid = fork();
  if (pid < 0) die("fork");
  if (pid == 0) {
    close(master);
    close(slave);
    std::vector<char*> cargs;
    for (std::string& a : args) cargs.push_back(&a[0]);
    cargs.push_back(nullptr);
    execvp(cargs[0], cargs.data());
    fprintf(stderr, "raw_playback: %s: %s\n", cargs[0], strerror(errno));
    _exit(127);
  }
  child = pid;
  sleepSeconds(o.setupWait);
  const long n = play(o, master);
  waitDrained(slave, 30.0);
  sleepSeconds(0.1);  // let the reader finish with what it took last
  close(slave);
  close(master);  // hangs the line up
  if (n >= 0) fprintf(stderr, "raw_playback: %ld samples played\n", n);

  int status = childStatus;
  if (!childEnded) {
    while (waitpid(pid, &status, 0) < 0) {
      if (errno != EINTR) die("waitpid");
    }
  }
  if (n < 0) return 1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
  static const struct option kLong[] = {
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {"verbose", no_argument, nullptr, 'v'},
      {nullptr, 0, nullptr, 0}};
  Options o;
  bool verbose = false;
  int opt;
  while ((opt = getopt_long(argc, argv, "+nhvs:g:B:d:w:", kLong, nullptr)) != -1) {
    switch (opt) {
      case 'n': o.paced = false; break;
      case 'v': verbose = true; break;
      case 's':
        if (!numberIn("speed", optarg, kMinSpeed, kMaxSpeed, &o.speed)) return 1;
        break;
      case 'g':
        if (!numberIn("gap", optarg, 0, kMaxSeconds, &o.maxGap)) return 1;
        break;
      case 'w':
        if (!numberIn("wait", optarg, 0, kMaxSeconds, &o.setupWait)) return 1;
        break;
      case 'B': {
        double baud;
        if (!numberIn("baud", optarg, 0, INT_MAX, &baud)) return 1;
        o.baud = static_cast<int>(baud);
        break;
      }
      case 'd': o.device = optarg; break;
      case 'h': fputs(kUsage, stdout); return 0;
      case 'V': printf("raw_playback (%s) %s\n", HERON_PACKAGE, HERON_VERSION); return 0;
      default: fputs(kUsage, stderr); return 1;
    }
  }
  heron::showInformation(verbose);
  int i = optind;
  for (; i < argc && strcmp(argv[i], "--") != 0; ++i) o.files.push_back(argv[i]);
  if (i < argc) {
    for (++i; i < argc; ++i) o.program.push_back(argv[i]);
    if (o.program.empty()) {
      fputs(kUsage, stderr);
      return 1;
    }
  }
  if (o.files.empty() || (o.device == nullptr) == o.program.empty()) {
    fputs(kUsage, stderr);
    return 1;
  }
  return o.device ? playToDevice(o) : playToProgram(o);
}
