// Ingest's acquisition in memory: the archive in a scratch folder, the
// loop's clocks and quiet watch through the clock seam, and the one
// framing: the bytes serial_ingest's sampling mode reads give Ingest the
// same samples, whatever the corruption and however the bytes arrive.
#include <gtest/gtest.h>

#include "Acquisition.h"
#include "base/Exception.h"
#include "lib/samples/sample_support.h"
#include "support/scratch_site.h"

namespace {

using namespace sample_test;

const auto files = ScratchSite::files;

const double kStart = 1.7e9;  // 22:13:20 UTC
const uint32_t kStartMs = 80000000;

struct FakeClock {
  double mono = 1000, wall = kStart;
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
  unsigned long tossed = 0;
  for (int n = 0; n < kStreams; ++n) {
    const std::vector<std::string> pieces = corruptStream(rng, kStartMs);
    // serial_ingest's sampling mode: readSample in a loop, to the end.
    std::vector<std::string> want, got;
    MemoryInput sampling(pieces, true, 0, kStart, true);
    RawSample s;
    try {
      for (;;)
        if (sampling.readSample(&s) == Framer::Sample) want.push_back(bytesOf(recordOf(s)));
    } catch (const oru::EOFException&) {
    }
    MemoryInput port(pieces, false, 0, kStart, true);
    ArchiveWriter archive(dir(), "s%H%M%S", 3600);
    InputState state;
    Acquisition acq(port, archive, state, clock_.seam(), [&got](int, const char* p, size_t k) { got.emplace_back(p, k); });
    for (size_t k = 0; k < 3 * pieces.size(); ++k, clock_.mono += 0.001) acq.serve(true, false);
    // Ingest's samples are the sampling mode's, all of them, in order.
    ASSERT_TRUE(got == want) << "stream " << n << ": " << got.size() << " served of " << want.size();
    tossed += state.tossedTags;
  }
  EXPECT_GT(tossed, 0u) << "no stream had tags the guard would not trust";
}

// A step of the wall clock moves neither the port's next read nor the
// flush; the quiet state reaches the status.
TEST_F(Acquire, RunsOnTheMonotonicClock) {
  const std::string a = bytesOf(Record{kStartMs, 1, "ab"}), b = bytesOf(Record{kStartMs + 1, 2, "cd"});
  MemoryInput port({a + '\3', "", b + '\3'}, false, 0, kStart, true);
  ArchiveWriter archive(dir(), "s%H%M%S", 3600);
  archive.prepare();
  Acquisition acq(port, archive, state_, clock_.seam(), [](int, const char*, size_t) {});
  ASSERT_EQ(acq.serve(true, false), 1);
  EXPECT_FALSE(acq.watchPort());
  EXPECT_LE(acq.pollTimeout(), 3);
  clock_.wall -= 60;
  clock_.mono += Acquisition::kGather;
  EXPECT_EQ(acq.serve(false, false), 1) << "the rest outlasted its 3 ms";
  EXPECT_LE(acq.pollTimeout(), 1000);
  clock_.mono += 1;
  acq.tick();
  EXPECT_EQ(files(dir()), (std::map<std::string, std::string>{{"s221320", a + b}})) << "not flushed a second on";
  EXPECT_EQ(state_.archiveFile, dir() + "/s221320");
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
    w.check(t + c.silent + 0.05);
    EXPECT_EQ(w.spells(), c.quiet ? 1u : 0u) << c.interval << " s apart, " << c.silent << " s silent";
    w.sample(t + c.silent + 0.1);
    EXPECT_FALSE(w.quiet());
    if (c.quiet) {
      EXPECT_NEAR(w.threshold(), std::max(10.0, 10 * c.interval), 0.01) << "a quiet spell in the mean";
    }
  }
}

// The rate over the last ten seconds: a rate that changed, a silence that
// empties the ring, and a start shorter than ten seconds.
TEST(RateRing, CountsTheLastTenSeconds) {
  struct Case {
    double hz1, seconds1, hz2, seconds2, silent, rate;
  } cases[] = {{5, 30, 20, 10, 0, 20}, {5, 30, 20, 5, 0, 12.5}, {10, 30, 0, 0, 11, 0}, {10, 3, 0, 0, 0, 10}};
  for (const Case& c : cases) {
    RateRing r;
    double t = 100;
    for (int i = 0; i < c.hz1 * c.seconds1; ++i) r.add(t += 1 / c.hz1);
    for (int i = 0; i < c.hz2 * c.seconds2; ++i) r.add(t += 1 / c.hz2);
    EXPECT_NEAR(r.rate(t + c.silent), c.rate, c.rate * 0.12 + 0.01) << c.hz1 << " Hz then " << c.hz2 << " Hz";
  }
}

}  // namespace
