// End to end through real parts: serial_ingest's sampling mode on a
// pseudo-terminal.  (raw_dump's end to end cases are in tools_test.cc.)
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "lib/samples/sample_support.h"
#include "support/subprocess.h"

namespace {

using namespace sample_test;

TEST(Sampling, MissingEndOfMessageIsPrintedWithB) {
  int master, slave;
  char name[64];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  struct termios raw;  // raw from the start, so byte 3 is not an interrupt
  ASSERT_EQ(tcgetattr(slave, &raw), 0);
  cfmakeraw(&raw);
  ASSERT_EQ(tcsetattr(slave, TCSANOW, &raw), 0);
  const Record good{1100, 1, "abcd"}, bad{2000, 2, "efgh"}, lost{3100, 4, "ij"}, next{4200, 5, "kl"};
  const std::string bytes = bytesOf(good, true) + bytesOf(bad) + bytesOf(lost, true) + bytesOf(next, true);
  const std::string want = "  1100 1 4 25185 25699\nB 2000 2 4 26213 26727\n  4200 5 2 27755\n";
  // The bytes wait in the line until serial_ingest reads them; the samples
  // are attributed to the module the environment names.
  ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  const pid_t pid = fork();
  if (pid == 0) {
    close(master);
    close(slave);
    const RunResult r = runProgram({SERIAL_INGEST_BIN, "-d", name, "-L"}, "", {"SERIAL_INGEST_TERN=flux9"});
    if (r.out != want) fprintf(stderr, "printed:\n%s", r.out.c_str());
    _exit(r.out == want && r.err.find(std::string("flux9 (via ") + name + ")") != std::string::npos ? 0 : 1);
  }
  for (int i = 0, n = 1; i < 500 && n > 0; ++i) {  // until the line has handed everything over
    usleep(10000);
    ASSERT_EQ(ioctl(slave, FIONREAD, &n), 0);
  }
  usleep(100000);
  close(slave);
  close(master);
  int status;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
