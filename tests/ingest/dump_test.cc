// The debugging dumps end to end: serial_ingest reads a pseudo-terminal that
// this test writes to, and its standard output is compared byte for byte.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctype.h>
#include <string>
#include <vector>

#include "support/subprocess.h"

namespace {
// A running serial_ingest on the slave side of a fresh pty.
class DumpRun {
 public:
  explicit DumpRun(const char* mode) {
    char name[64];
    EXPECT_EQ(openpty(&master_, &slave_, name, nullptr, nullptr), 0);
    int outp[2], errp[2];
    EXPECT_EQ(pipe(outp), 0);
    EXPECT_EQ(pipe(errp), 0);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(outp[1], 1);
      dup2(errp[1], 2);
      // Only the port itself may stay open, or hanging up would not reach it.
      close(master_);
      close(slave_);
      close(outp[0]);
      close(errp[0]);
      execl(SERIAL_INGEST_BIN, SERIAL_INGEST_BIN, "-d", name, "-L", mode, (char*)nullptr);
      _exit(127);
    }
    close(outp[1]);
    close(errp[1]);
    out_ = outp[0];
    err_ = errp[0];
    // The port is ready once serial_ingest has put its 128-byte reads in place.
    for (int i = 0; i < 500; ++i) {
      struct termios t;
      if (tcgetattr(slave_, &t) == 0 && t.c_cc[VMIN] == 128 && !(t.c_lflag & ICANON)) break;
      usleep(10000);
    }
  }
  ~DumpRun() {
    if (master_ >= 0) hangUp();
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(out_);
    close(err_);
  }
  void feed(const std::string& bytes) {
    ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // Reads standard output until it holds n newlines, or 5 s pass.
  std::string readLines(size_t n) {
    std::string got;
    char buf[4096];
    while (static_cast<size_t>(std::count(got.begin(), got.end(), '\n')) < n) {
      struct pollfd p = {out_, POLLIN, 0};
      if (poll(&p, 1, 5000) <= 0) break;
      ssize_t k = read(out_, buf, sizeof buf);
      if (k <= 0) break;
      got.append(buf, k);
    }
    return got;
  }
  // Closes our ends.  Bytes still on their way through the pty are let
  // through first: a hang-up discards what the line has not yet taken in.
  void hangUp() {
    usleep(100000);
    close(slave_);
    close(master_);
    master_ = -1;
  }
  // Everything left on both streams, and the exit status.
  int finish(std::string* out, std::string* err) {
    for (int fd : {out_, err_}) {
      char buf[4096];
      ssize_t k;
      while ((k = read(fd, buf, sizeof buf)) > 0) (fd == out_ ? out : err)->append(buf, k);
    }
    int status;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int master_ = -1, slave_ = -1, out_ = -1, err_ = -1;
  pid_t pid_ = -1;
};

std::string bytesUpTo(int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += static_cast<char>((i * 37 + 11) & 0xff);
  return s;
}

// The expected dumps, written independently of the program with printf.
std::string expectedDump(const std::string& bytes, bool hex) {
  std::string out;
  char item[32];
  for (size_t i = 0; i < bytes.size(); ++i) {
    unsigned char b = static_cast<unsigned char>(bytes[i]);
    if (i % 16 == 0) {
      snprintf(item, sizeof item, "%07zu", i);
      out += item;
    }
    if (hex)
      snprintf(item, sizeof item, i % 2 ? "%.2x" : " %.2x", b);
    else if (b == 0)
      snprintf(item, sizeof item, "  \\0");
    else if (isprint(b))
      snprintf(item, sizeof item, "   %c", b);
    else
      snprintf(item, sizeof item, " %.3o", b);
    out += item;
    if (i % 16 == 15) out += '\n';
  }
  return out;
}
}  // namespace

TEST(Dump, HexLinesCrossReadsAndReachThePipeAtOnce) {
  std::string bytes = bytesUpTo(300);
  DumpRun run("-H");
  // A read returns once 128 bytes are there, so 136 bytes end the first read
  // in the middle of line 9 or leave those 8 bytes for the next read; either
  // way the first 8 lines must be out before any more bytes arrive.
  run.feed(bytes.substr(0, 136));
  std::string early = run.readLines(8);
  std::string first8 = expectedDump(bytes.substr(0, 128), true);
  EXPECT_EQ(early.substr(0, first8.size()), first8);
  run.feed(bytes.substr(136));
  run.hangUp();
  std::string out = early, err;
  EXPECT_EQ(run.finish(&out, &err), 1);
  EXPECT_EQ(out, expectedDump(bytes, true));
  EXPECT_NE(err.find("EOFException: "), std::string::npos) << err;
}

TEST(Dump, HexBodyMatchesXxdGrouping) {
  std::string bytes = bytesUpTo(256);
  DumpRun run("-H");
  run.feed(bytes);
  run.hangUp();
  std::string out, err;
  run.finish(&out, &err);

  char path[] = "/tmp/dumpXXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), 256);
  close(fd);
  RunResult xxd = runProgram({"/usr/bin/xxd", "-g2", "-c16", path});
  unlink(path);
  ASSERT_EQ(xxd.status, 0);
  // xxd: "00000000: 0b30 ...  ascii"; ours: "0000000 0b30 ...".
  size_t o = 0, x = 0;
  for (int line = 0; line < 16; ++line) {
    size_t oe = out.find('\n', o), xe = xxd.out.find('\n', x);
    ASSERT_NE(oe, std::string::npos);
    EXPECT_EQ(out.substr(o + 8, 39), xxd.out.substr(x + 10, 39)) << "line " << line;
    o = oe + 1;
    x = xe + 1;
  }
}

TEST(Dump, OctalAndCharacters) {
  std::string bytes = std::string("A\0\x7f", 3) + bytesUpTo(150);
  DumpRun run("-O");
  run.feed(bytes);
  std::string out = run.readLines(8), err;
  run.hangUp();
  EXPECT_EQ(run.finish(&out, &err), 1);
  EXPECT_EQ(out.substr(0, 7 + 4 + 4 + 4), "0000000   A  \\0 177");
  EXPECT_EQ(out, expectedDump(bytes, false));
}

TEST(Dump, MissingPortEndsWithTheExceptionText) {
  RunResult r = runProgram({SERIAL_INGEST_BIN, "-H", "-d", "/nonexistent/tty"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "IOException: /nonexistent/tty: open: No such file or directory\n");
}
