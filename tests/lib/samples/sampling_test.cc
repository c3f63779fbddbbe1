// serial_ingest's sampling mode end to end on a pseudo-terminal;
// raw_playback's own ending; raw_dump merging files of a scratch site.
#include <gtest/gtest.h>
#include <pty.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "lib/samples/sample_support.h"
#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

// The line serial_ingest prints for a sample, built here independently.
std::string lineOf(const Record& s, const char* prefix = "  ") {
  std::ostringstream os;
  os << prefix << s.ms << ' ' << static_cast<int>(s.chan) << ' ' << s.data.size();
  for (size_t i = 0; i + 1 < s.data.size(); i += 2) {
    int16_t w;
    memcpy(&w, s.data.data() + i, 2);
    os << ' ' << w;
  }
  return os.str() + "\n";
}

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
  const std::string want = lineOf(good) + lineOf(bad, "B ") + lineOf(next);
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

TEST(Sampling, PlaybackStopsWhenTheReaderEnds) {
  ScratchSite site;
  const std::string path = site.write("unread.raw", bytesOf(std::vector<Record>(100000, Record{1000, 1, "xx"})));
  const RunResult r = runProgram({RAW_PLAYBACK_BIN, "-n", "-w", "0", path, "--", "/bin/true"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("raw_playback: the program ended before the line took all samples"), std::string::npos) << r.err;
  EXPECT_EQ(runProgram({RAW_PLAYBACK_BIN, path}).status, 1) << "neither a device nor a program";
}

TEST(RawDump, MergesFilesInTimeOrderWithAbsoluteTimes) {
  ScratchSite site;
  site.writeOps("channel_config", "timetag msecs ;\n");
  const std::string a = site.write(
      "dump_a.raw", bytesOf(std::vector<Record>{{43200000, 1, std::string("\1\0", 2)}, {43200300, 1, std::string("\2\0", 2)}}));
  const std::string b = site.write("dump_b.raw", bytesOf(std::vector<Record>{{43200100, 2, ""}}));
  RunResult r = runProgram({RAW_DUMP_BIN, "-D", "2026 11 21", a, b});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "2026 11 21 12:00:00.000 0 43200000 1 2 1\n"
            "2026 11 21 12:00:00.100 1 43200100 2 0\n"
            "2026 11 21 12:00:00.300 0 43200300 1 2 2\n");
  // A start time per file, a time format of its own, standard input.
  r = runProgram({RAW_DUMP_BIN, "-s", "2026 1 2 12:00", "-f", "%j %H:%M:%S%1F", "-"},
                 bytesOf(std::vector<Record>{{43200000, 1, ""}, {43260000, 1, ""}}));
  EXPECT_EQ(r.out, "002 12:00:00.0 0 43200000 1 0\n002 12:01:00.0 0 43260000 1 0\n");
  r = runProgram({RAW_DUMP_BIN, "/nonexistent/x.raw"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("raw_dump: IOException: /nonexistent/x.raw: open: No such file or directory"), std::string::npos);
}

}  // namespace
