// The archive: what the writer writes comes back through the file-sequence
// input, every sample in order with its time, across a period boundary, a
// restart and a writer killed mid-run, each file dated by its name; the
// writer's directory and name guarantees; the archive table's faults.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "archive/ArchiveConfig.h"
#include "archive/ArchiveWriter.h"
#include "base/Exception.h"
#include "lib/samples/sample_support.h"
#include "samples/FileInputs.h"
#include "support/scratch_site.h"
#include "support/thrown.h"
#include "time/TTConv.h"

namespace {

using namespace sample_test;

const double kNoon = 1795262400;  // 2026-11-21 12:00:00 UTC
const double kFirst = kNoon + 3590;  // 10 s before the hour's file boundary
const char kPattern[] = "t1_%Y%m%d_%H%M%S.raw";

// Sample i of the run: four a second from kFirst, of varied channels and
// lengths.
double timeOf(int i) { return kFirst + i * 0.25; }
std::string sampleOf(int i) {
  return bytesOf(Record{static_cast<uint32_t>((43200 + 3590) * 1000 + i * 250), static_cast<uint8_t>(1 + i % 7),
                        std::string(static_cast<size_t>(i % 40), static_cast<char>('a' + i % 26))});
}

// Samples [from, to) through w, flushed once a second as Ingest does.
void writeRun(ArchiveWriter& w, int from, int to) {
  for (int i = from; i < to; ++i) {
    w.append(sampleOf(i).data(), sampleOf(i).size(), timeOf(i));
    if (i % 4 == 3) w.flush(timeOf(i));
  }
}

// A writing process from sample `from` on, killed once everything before
// `flushed` is on disk.
void killWhileWriting(const std::string& dir, int from, int flushed) {
  int told[2];
  ASSERT_EQ(pipe(told), 0);
  const pid_t child = fork();
  if (child == 0) {
    ArchiveWriter killed(dir, kPattern, 3600);
    writeRun(killed, from, flushed);
    if (write(told[1], "x", 1) == 1) writeRun(killed, flushed, flushed + 4000);
    for (;;) pause();
  }
  char c;
  EXPECT_EQ(read(told[0], &c, 1), 1);
  EXPECT_EQ(kill(child, SIGKILL), 0);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  close(told[0]);
  close(told[1]);
}

TEST(Archive, RoundTripAcrossRotationRestartAndKill) {
  ScratchSite site;
  const std::string dir = site.root() + "/raw";
  TTConv::setType(msecs);
  site.write("raw/t1_2026112_120000.raw.gz", "not of the pattern");
  {
    ArchiveWriter first(dir, kPattern, 3600);
    writeRun(first, 0, 80);  // crosses 13:00:00
  }
  {
    ArchiveWriter restarted(dir, kPattern, 3600);
    writeRun(restarted, 80, 120);
  }
  killWhileWriting(dir, 120, 160);

  std::vector<double> starts;
  const ArchiveConfig table(site.writeOps("archive_config", "directory \"" + dir + "\" ; archive t1 \"" +
                                                                std::string(kPattern) + "\" 3600 ;").c_str());
  EXPECT_EQ(table.GetArchiveFileNames("t1", kNoon + 3600, kNoon + 3605, starts).size(), 2u);
  std::vector<std::string> files = table.GetArchiveFileNames("t1", kNoon, kNoon + 7200, starts);
  // A file is named by its first sample's second, or by the boundary it follows.
  EXPECT_EQ(starts, (std::vector<double>{kFirst, kNoon + 3600, kNoon + 3610, kNoon + 3620}));
  std::vector<char*> names;
  size_t bytes = 0;
  for (std::string& f : files) {
    names.push_back(&f[0]);
    bytes += ScratchSite::files(dir)[f.substr(dir.size() + 1)].size();
  }
  FilesRawDataInput in(0, names, starts);
  RawSample s;
  int n = 0;
  size_t taken = 0;
  try {
    for (; in.readSample(&s) == Framer::Sample; ++n) {
      ASSERT_EQ(bytesOf(recordOf(s)), sampleOf(n)) << "sample " << n;
      ASSERT_NEAR(in.tt_to_secs(static_cast<long>(s.tt)), timeOf(n), 0.0005) << "sample " << n;
      taken += RawSample::headLen + static_cast<size_t>(s.size());
    }
    ADD_FAILURE() << "a sample was cut at " << n;
  } catch (const oru::EOFException&) {
  }
  EXPECT_GE(n, 160) << "samples flushed before the kill are missing";
  EXPECT_EQ(taken, bytes) << "the files hold more than whole samples";
}

// The directory is made with its parents; 400 rotations within a second
// make one file, named by its second; a removed directory is made again
// and a new file opened at the next flush; while it cannot be made the
// failure is reported, and clears.
TEST(Archive, WriterDirectoryIsMadeAndSurvivesStormsAndRemoval) {
  ScratchSite site;
  const std::string dir = site.root() + "/raw";
  const double start = 1.7e9;  // 22:13:20 UTC
  ArchiveWriter w(dir + "/a/b", "t%H%M%S", 3600);
  w.prepare();
  EXPECT_TRUE(ScratchSite::files(dir + "/a/b").empty()) << "the probe file stayed";
  for (int i = 0; i < 400; ++i) {
    w.append("abcdefg", 7, start + i * 0.002);
    w.rotate(start + i * 0.002);
  }
  w.flush(start + 0.9);
  EXPECT_EQ(ScratchSite::files(dir + "/a/b").size(), 1u);
  ASSERT_EQ(system(("rm -rf '" + dir + "'").c_str()), 0);
  std::ofstream(dir) << "in the way";
  w.append("hijklmn", 7, start + 1.2);
  w.flush(start + 1.3);
  EXPECT_NE(w.failure().find(dir + "/a/b"), std::string::npos) << w.failure();
  EXPECT_NE(w.failure().find(strerror(ENOTDIR)), std::string::npos) << w.failure();
  ASSERT_EQ(unlink(dir.c_str()), 0);
  w.flush(start + 2.3);
  w.flush(start + 3.3);
  EXPECT_EQ(w.failure(), "");
  EXPECT_EQ(ScratchSite::files(dir + "/a/b"), (std::map<std::string, std::string>{{"t221323", "hijklmn"}}));
}

TEST(Archive, WriterRefusesPatternsThatLeaveTheDirectory) {
  for (const char* p : {"../x%H", "/etc/x%H", "a/../../x", "..", "a/.."})
    EXPECT_THROW(ArchiveWriter("/tmp/raw", p, 3600), BadConfigurationException) << p;
  for (const char* p : {"tern1_%Y%m%d.raw", "sub/t%H", "..x%H", "a..b"})
    EXPECT_NO_THROW(ArchiveWriter("/tmp/raw", p, 3600)) << p;
}

TEST(Archive, TableFaults) {
  ScratchSite site;
  std::vector<double> starts;
  const std::string path = site.writeOps("archive_config", "archive tern1 \"t%H\" 3600 ;");
  EXPECT_NE(thrownText<BadConfigurationException>([&] { ArchiveConfig(path.c_str()).GetArchiveFileNames("tern2", 0, 1, starts); }),
            "nothing thrown");
  setenv("RAWDATADIR", "/nonexistent", 1);
  EXPECT_NE(thrownText<BadConfigurationException>([&] { ArchiveConfig(path.c_str()).GetArchiveFileNames("tern1", 0, 1, starts); })
                .find("opendir"),
            std::string::npos);
  unsetenv("RAWDATADIR");
  const struct {
    const char *text, *message;
  } bad[] = {{"archive t p 0 ;", "1: seconds per file must be positive"},
             {"archive t p 1 ; archive t q 1 ;", "1: module t given twice"},
             {"files ;", "1: unknown record files"},
             {"directory ;", "1: expected directory <path> ;"}};
  for (const auto& c : bad) {
    const std::string path = site.writeOps("archive_config", c.text);
    EXPECT_EQ(thrownText<BadConfigurationException>([&] { ArchiveConfig a(path.c_str()); }),
              "BadConfigurationException: " + path + ":" + c.message);
  }
}

}  // namespace
