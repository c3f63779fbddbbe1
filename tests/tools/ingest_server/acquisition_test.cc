// Ingest's acquisition in memory: the archive writer in a scratch folder,
// the loop's clocks and quiet watch through the clock seam, and the one
// framing: the bytes serial_ingest's sampling mode reads give Ingest the
// same samples, whatever the corruption and however the bytes arrive.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Acquisition.h"
#include "ArchiveWriter.h"
#include "base/Exception.h"
#include "support/scratch_site.h"

namespace {

std::vector<std::string> filesIn(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  for (struct dirent* e; d && (e = readdir(d)) != nullptr;)
    if (e->d_name[0] != '.') names.push_back(e->d_name);
  if (d) closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

std::string contents(const std::string& path) {
  std::stringstream s;
  s << std::ifstream(path).rdbuf();
  return s.str();
}

// Hands out the chunks of a stream; between chunks a non-blocking reader
// finds nothing (EAGAIN), a blocking one the next chunk; at the end a
// blocking reader meets the end of the stream.
class ChunkSource : public ByteSource {
 public:
  ChunkSource(std::vector<std::string> chunks, bool pauses) : chunks_(std::move(chunks)), pauses_(pauses) {}
  long read(char* p, size_t n) override {
    if (paused_ || i_ == chunks_.size()) {
      paused_ = false;
      if (i_ == chunks_.size() && !pauses_) return 0;
      errno = EAGAIN;
      return -1;
    }
    const size_t k = std::min(n, chunks_[i_].size() - at_);
    memcpy(p, chunks_[i_].data() + at_, k);
    if ((at_ += k) == chunks_[i_].size()) at_ = 0, ++i_, paused_ = pauses_;
    return static_cast<long>(k);
  }
  bool done() const { return i_ == chunks_.size(); }

 private:
  std::vector<std::string> chunks_;
  bool pauses_, paused_ = false;
  size_t i_ = 0, at_ = 0;
};

// A serial line's input as the port's readers build it: end-of-message
// byte 3, millisecond tags.
class LineInput : public RawDataInput {
 public:
  LineInput(ChunkSource* src, bool nonBlocking_)
      : RawDataInput(std::unique_ptr<ByteSource>(src), 0, 8192, msecs) {
    framer.setEndOfMessage(3);
    nonBlocking = nonBlocking_;
  }
};

std::string asWire(const RawSample& s) {
  return std::string(reinterpret_cast<const char*>(&s.tt), 4) + char(s.chan) + char(s.len) +
         std::string(static_cast<const char*>(s.data), s.len);
}

uint32_t msOfDayNow() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<uint32_t>(ts.tv_sec % 86400 * 1000);
}

std::string goodSample(std::mt19937& rng, uint32_t ms) {
  const uint32_t tt = htonl(ms);
  std::string s(reinterpret_cast<const char*>(&tt), 4);
  const int len = static_cast<int>(rng() % 256);
  s += char(1 + rng() % 4);
  s += char(len);
  for (int k = 0; k < len; ++k) s += char(rng());
  return s;
}

// Good samples, and between them noise ending in an end byte, samples with
// a wrong end byte and samples cut short; then cut at random places.
std::vector<std::string> corruptStream(std::mt19937& rng, uint32_t ms) {
  std::string bytes;
  for (int i = 0; i < 300; ++i) {
    std::string s = goodSample(rng, ms + static_cast<uint32_t>(i));
    switch (rng() % 10) {
      case 0:
        for (int k = static_cast<int>(rng() % 40); k > 0; --k) bytes += char(rng());
        bytes += '\3';
        break;
      case 1:
        bytes += s + char(4 + rng() % 250);
        continue;
      case 2:
        bytes += s.substr(0, rng() % s.size());
        continue;
    }
    bytes += s + '\3';
  }
  std::vector<std::string> chunks;
  for (size_t at = 0; at < bytes.size();) {
    const size_t k = std::min<size_t>(bytes.size() - at, 1 + rng() % (rng() % 4 == 0 ? 4096 : 64));
    chunks.push_back(bytes.substr(at, k));
    at += k;
  }
  return chunks;
}

// What serial_ingest's sampling mode prints as samples for these chunks.
std::vector<std::string> samplingMode(const std::vector<std::string>& chunks) {
  LineInput in(new ChunkSource(chunks, false), false);
  std::vector<std::string> out;
  RawSample s;
  try {
    for (;;)
      if (in.readSample(&s) == Framer::Sample) out.push_back(asWire(s));
  } catch (const oru::EOFException&) {
  }
  return out;
}

struct FakeClock {
  double mono = 1000, wall = 1.7e9;
  IngestClock seam() {
    return {[this] { return mono; }, [this] { return wall; }};
  }
};

class Acquire : public ::testing::Test {
 protected:
  std::string dir() const { return site_.root() + "/raw"; }
  ScratchSite site_;
  FakeClock clock_;
  InputState state_;
};

TEST_F(Acquire, IngestFramesWhatTheSamplingModePrints) {
  std::mt19937 rng(19);
  const int kStreams = 200;
  unsigned long seen = 0, tossed = 0;
  for (int n = 0; n < kStreams; ++n) {
    const std::vector<std::string> chunks = corruptStream(rng, msOfDayNow());
    const std::vector<std::string> expected = samplingMode(chunks);
    ArchiveWriter archive(dir(), "s%H%M%S", 3600);
    ChunkSource* src = new ChunkSource(chunks, true);
    LineInput in(src, true);
    InputState state;
    std::vector<std::string> got;
    Acquisition acq(in, archive, state, clock_.seam(),
                    [&got](int, const char* p, size_t k) { got.push_back(std::string(p, k)); });
    for (int idle = 0; idle < 3; clock_.mono += 0.001) idle = acq.serve(true, false) == 0 && src->done() ? idle + 1 : 0;
    // Ingest's samples are the sampling mode's, in order, less those tossed.
    auto it = expected.begin();
    for (const std::string& g : got) it = std::find(it, expected.end(), g);
    ASSERT_TRUE(it != expected.end() || got.empty()) << "stream " << n << ": a sample Ingest framed differently";
    ASSERT_EQ(got.size() + state.tossedTags, expected.size()) << "stream " << n;
    seen += expected.size();
    tossed += state.tossedTags;
  }
  std::cout << kStreams << " streams, " << seen << " samples, " << tossed << " tossed by the time-tag guard\n";
}

// A step of the wall clock moves neither the port's next read nor the
// flush; the quiet state reaches the status.
TEST_F(Acquire, RunsOnTheMonotonicClock) {
  const uint32_t ms = msOfDayNow();
  std::mt19937 rng(3);
  const std::string a = goodSample(rng, ms), b = goodSample(rng, ms + 1);
  ChunkSource* src = new ChunkSource({a + '\3', b + '\3'}, true);
  LineInput in(src, true);
  ArchiveWriter archive(dir(), "s%H%M%S", 3600);
  archive.prepare();
  state_.station = "tern2";
  state_.port = "/dev/ttyS3";
  Acquisition acq(in, archive, state_, clock_.seam(), [](int, const char*, size_t) {});
  ASSERT_EQ(acq.serve(true, false), 1);
  EXPECT_FALSE(acq.watchPort());
  EXPECT_LE(acq.pollTimeout(), 3);
  clock_.wall -= 60;
  clock_.mono += Acquisition::kGather;
  EXPECT_EQ(acq.serve(false, false), 1) << "the rest outlasted its 3 ms";
  EXPECT_LE(acq.pollTimeout(), 1000);
  clock_.mono += 1;
  acq.tick();
  const std::vector<std::string> files = filesIn(dir());
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(contents(dir() + "/" + files[0]), a + b) << "not flushed a second after";
  EXPECT_EQ(state_.archiveFile, dir() + "/" + files[0]);
  clock_.mono += 10;
  acq.tick();
  EXPECT_TRUE(state_.quiet);
  EXPECT_EQ(state_.quietSpells, 1u);
}

// Quiet after max(10 s, 10 x the mean interval); one spell per silence.
TEST(QuietWatch, WarnsOncePerSilenceScaledToTheInstrument) {
  struct Case {
    double interval, silent;
    bool quiet;
  } cases[] = {{0.1, 9.9, false}, {0.1, 10.1, true}, {3, 29, false}, {3, 31, true}};
  for (const Case& c : cases) {
    QuietWatch w("tern2", "/dev/ttyS3", 0);
    double t = 0;
    for (int i = 0; i < 200; ++i) w.sample(t += c.interval);
    w.check(t + c.silent);
    EXPECT_EQ(w.quiet(), c.quiet) << c.interval << " s apart, " << c.silent << " s silent";
    w.check(t + c.silent + 0.05);
    EXPECT_EQ(w.spells(), c.quiet ? 1u : 0u);
    w.sample(t + c.silent + 0.1);
    EXPECT_FALSE(w.quiet());
    if (c.quiet) {
      EXPECT_NEAR(w.threshold(), std::max(10.0, 10 * c.interval), 0.01) << "a quiet spell in the mean";
    }
  }
}

TEST(ArchiveWriterNames, PatternsThatLeaveTheDirectoryAreRefused) {
  for (const char* p : {"../x%H", "/etc/x%H", "a/../../x", "..", "a/.."})
    EXPECT_THROW(ArchiveWriter("/tmp/raw", p, 3600), BadConfigurationException) << p;
  for (const char* p : {"tern1_%Y%m%d.raw", "sub/t%H", "..x%H", "a..b"})
    EXPECT_NO_THROW(ArchiveWriter("/tmp/raw", p, 3600)) << p;
}

TEST_F(Acquire, DirectoryIsMadeOrTheReasonGiven) {
  ArchiveWriter(dir() + "/a/b", "x", 3600).prepare();
  struct stat st;
  EXPECT_EQ(stat((dir() + "/a/b").c_str(), &st), 0);
  EXPECT_EQ(filesIn(dir() + "/a/b").size(), 0u) << "the probe file stayed";
  std::ofstream(site_.root() + "/plain") << "x";
  try {
    ArchiveWriter(site_.root() + "/plain/raw", "x", 3600).prepare();
    ADD_FAILURE() << "no exception";
  } catch (const oru::IOException& e) {
    EXPECT_NE(std::string(e.what()).find(site_.root() + "/plain/raw"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find(strerror(ENOTDIR)), std::string::npos) << e.what();
  }
}

// 400 rotations within a second make one file, named by its second; a
// removed directory is made again and a new file opened at the next flush;
// while the directory cannot be made the failure is reported, and clears.
TEST_F(Acquire, ArchiveSurvivesStormsAndARemovedDirectory) {
  ArchiveWriter w(dir(), "t%H%M%S", 3600);
  w.prepare();
  const double t = 1.7e9;
  for (int i = 0; i < 400; ++i) {
    w.append("abcdefg", 7, t + i * 0.002);
    w.rotate(t + i * 0.002);
  }
  w.flush(t + 0.9);
  EXPECT_EQ(filesIn(dir()), std::vector<std::string>{"t221320"});
  ASSERT_EQ(system(("rm -rf '" + dir() + "'").c_str()), 0);
  std::ofstream(dir()) << "in the way";
  w.append("hijklmn", 7, t + 1.2);
  w.flush(t + 1.3);
  EXPECT_NE(w.failure(), "");
  EXPECT_GT(w.errors(), 0u);
  ASSERT_EQ(unlink(dir().c_str()), 0);
  w.flush(t + 2.3);
  w.flush(t + 3.3);
  EXPECT_EQ(w.failure(), "");
  const std::vector<std::string> files = filesIn(dir());
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(contents(dir() + "/" + files[0]), "hijklmn");
}

}  // namespace
