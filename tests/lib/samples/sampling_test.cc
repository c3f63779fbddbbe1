// End to end through real parts: serial_ingest's sampling mode on a
// pseudo-terminal; raw_dump over files of a scratch site.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>


#include "lib/samples/sample_support.h"
#include "support/scratch_site.h"
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

// Files of a scratch site through file inputs and the merge: times from
// the files' start times, the end-of-data marker, earlier tags believed in
// a named file only after ten of them, standard input, a file that cannot
// be opened.
TEST(RawDump, MergesFilesInTimeOrderWithAbsoluteTimes) {
  ScratchSite site;
  site.writeOps("channel_config", "timetag msecs ;\n");
  std::string marker, early;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  for (int i = 0; i < 12; ++i) early += bytesOf(Record{43200000 - 2400000, 3, ""});
  const std::string a = site.write("a.raw", bytesOf(Record{43200000, 1, std::string("\1\0", 2)}) + early +
                                                bytesOf(Record{43200300, 3, marker}) + bytesOf(Record{43200400, 1, ""}));
  const std::string b = site.write("b.raw", bytesOf(Record{43200100, 2, ""}));
  RunResult r = runProgram({RAW_DUMP_BIN, "-D", "2026 11 21", a, b});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "2026 11 21 12:00:00.000 0 43200000 1 2 1\n"
            "2026 11 21 11:20:00.000 0 40800000 3 0\n"
            "2026 11 21 12:00:00.100 1 43200100 2 0\n");
  EXPECT_NE(r.err.find("raw_dump: 11 samples with untrusted time tags left out"), std::string::npos) << r.err;
  r = runProgram({RAW_DUMP_BIN, "-s", "2026 1 2 12:00", "-f", "%j %H:%M:%S%1F", "-"}, bytesOf(Record{43260000, 1, ""}));
  EXPECT_EQ(r.out, "002 12:01:00.0 0 43260000 1 0\n");
  r = runProgram({RAW_DUMP_BIN, "/nonexistent/x.raw"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("raw_dump: IOException: /nonexistent/x.raw: open: No such file or directory"), std::string::npos);
}

}  // namespace
