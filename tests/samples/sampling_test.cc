// serial_ingest's sampling mode end to end on pseudo-terminals, fed by
// raw_playback or by the test itself; and raw_dump on archive files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "Sample.h"
#include "samples/sample_support.h"
#include "support/subprocess.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

// The text serial_ingest prints for a sample, built here independently.
std::string lineOf(const Record& s, const char* prefix = "  ") {
  std::ostringstream os;
  os << prefix << s.ms << ' ' << static_cast<int>(s.chan) << ' ' << s.data.size();
  for (size_t i = 0; i + 1 < s.data.size(); i += 2) {
    int16_t w;
    memcpy(&w, s.data.data() + i, 2);
    os << ' ' << w;
  }
  os << '\n';
  return os.str();
}

TEST(Sampling, HundredThousandSamplesPlayedAt230400AllPrinted) {
  std::vector<Record> samples;
  std::string want;
  for (uint32_t i = 0; i < 100000; ++i) {
    // 20-byte samples whose data includes end-of-message bytes.
    Record s{(36000000 + i * 5) % 86400000, static_cast<uint8_t>(i % 7), std::string(14, '\0')};
    for (int k = 0; k < 14; ++k) s.data[static_cast<size_t>(k)] = static_cast<char>((i * 31 + static_cast<uint32_t>(k)) % 256);
    want += lineOf(s);
    samples.push_back(std::move(s));
  }
  const std::string path = sample_test::writeScratch("hundred.raw", bytesOf(samples));
  const RunResult r = runProgram({RAW_PLAYBACK_BIN, "-n", "-w", "0.3", path, "--", SERIAL_INGEST_BIN, "-B", "23040",
                                  "-L", "-d", "%s"});
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 100000);
  EXPECT_TRUE(r.out == want) << "the printed samples differ from those played";
  EXPECT_NE(r.err.find("raw_playback: 100000 samples played"), std::string::npos) << r.err;
  // The line hung up at the end: the mode ends there, as on a real port.
  EXPECT_EQ(r.status, 1);
}

TEST(Sampling, MissingEndOfMessageIsPrintedWithB) {
  int master, slave;
  char name[64];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  int outp[2], errp[2];
  ASSERT_EQ(pipe(outp), 0);
  ASSERT_EQ(pipe(errp), 0);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    dup2(outp[1], 1);
    dup2(errp[1], 2);
    close(errp[0]);
    close(master);
    close(slave);
    close(outp[0]);
    setenv("SERIAL_INGEST_TERN", "flux9", 1);
    execl(SERIAL_INGEST_BIN, SERIAL_INGEST_BIN, "-d", name, "-L", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(outp[1]);
  close(errp[1]);
  for (int i = 0; i < 500; ++i) {  // until serial_ingest has set the port up
    struct termios t;
    if (tcgetattr(slave, &t) == 0 && t.c_cc[VMIN] == 128) break;
    usleep(10000);
  }
  const Record good{1100, 1, "abcd"}, bad{2000, 2, "efgh"}, lost{3100, 4, "ij"}, next{4200, 5, "kl"};
  const std::string bytes = bytesOf(good, true) + bytesOf(bad) + bytesOf(lost, true) + bytesOf(next, true);
  ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  for (int i = 0, n = 1; i < 300 && n > 0; ++i) {  // until the line has handed everything over
    ASSERT_EQ(ioctl(slave, FIONREAD, &n), 0);
    usleep(10000);
  }
  usleep(100000);
  close(slave);
  close(master);
  std::string out;
  char buf[4096];
  ssize_t k;
  while ((k = read(outp[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(k));
  close(outp[0]);
  std::string err;
  while ((k = read(errp[0], buf, sizeof buf)) > 0) err.append(buf, static_cast<size_t>(k));
  close(errp[0]);
  int status;
  waitpid(pid, &status, 0);
  EXPECT_EQ(out, lineOf(good) + lineOf(bad, "B ") + lineOf(next));
  // The samples are attributed to the module named in the environment.
  EXPECT_NE(err.find(std::string("flux9 (via ") + name + ")"), std::string::npos) << err;
}

TEST(Sampling, PlaybackStopsWhenTheReaderEnds) {
  std::vector<Record> samples(100000, Record{1000, 1, std::string(14, 'x')});
  const std::string path = sample_test::writeScratch("unread.raw", bytesOf(samples));
  const RunResult r = runProgram({RAW_PLAYBACK_BIN, "-n", "-w", "0", path, "--", "/bin/true"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("raw_playback: the program ended before the line took all samples"), std::string::npos)
      << r.err;
  EXPECT_EQ(runProgram({RAW_PLAYBACK_BIN, path}).status, 1) << "neither a device nor a program";
}

TEST(RawDump, MergesFilesInTimeOrderWithAbsoluteTimes) {
  const std::string a = sample_test::writeScratch(
      "dump_a.raw", bytesOf(std::vector<Record>{{43200000, 1, std::string("\x01\x00", 2)}, {43200300, 1, std::string("\x02\x00", 2)}}));
  const std::string b = sample_test::writeScratch("dump_b.raw", bytesOf(std::vector<Record>{{43200100, 2, ""}}));
  RunResult r = runProgram({RAW_DUMP_BIN, "-D", "2026 11 21", a, b});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "2026 11 21 12:00:00.000 0 43200000 1 2 1\n"
            "2026 11 21 12:00:00.100 1 43200100 2 0\n"
            "2026 11 21 12:00:00.300 0 43200300 1 2 2\n");

  // A start time per file; its own time format; standard input.
  r = runProgram({RAW_DUMP_BIN, "-s", "2026 1 2 12:00", "-f", "%j %H:%M:%S%1F", "-"},
                 bytesOf(std::vector<Record>{{43200000, 1, ""}, {43260000, 1, ""}}));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "002 12:00:00.0 0 43200000 1 0\n002 12:01:00.0 0 43260000 1 0\n");

  r = runProgram({RAW_DUMP_BIN, "/nonexistent/x.raw"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("raw_dump: IOException: /nonexistent/x.raw: open: No such file or directory"),
            std::string::npos)
      << r.err;
  r = runProgram({RAW_DUMP_BIN});
  EXPECT_EQ(r.status, 1);
}

}  // namespace
