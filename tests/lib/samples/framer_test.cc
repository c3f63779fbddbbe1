// Cutting byte streams into raw samples, in memory: chosen and random
// streams in pieces of any size, corrupted framing and resynchronisation,
// datagrams, the end-of-data marker, signals; each sample encoded again.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <random>

#include "base/Exception.h"
#include "lib/samples/sample_support.h"
#include "support/thrown.h"

namespace {

using namespace sample_test;
typedef std::vector<std::pair<int, Record>> Results;

// Every result of a framer over the pieces (one read each at most) until
// it has nothing more.  The buffer is small, so that long streams shift it.
Results frame(const std::vector<std::string>& pieces, bool framed, bool datagrams = false) {
  Framer f(1024);
  if (framed) f.setEndOfMessage(3);
  f.setDatagrams(datagrams);
  StringSource src(pieces, true);
  Results out;
  RawSample s;
  for (;;) {
    const Framer::Result r = f.next(&s, 4);
    if (r != Framer::NoData) {
      out.emplace_back(r, recordOf(s));
      char bytes[RawSample::headLen + 255];
      EXPECT_EQ(std::string(bytes, static_cast<size_t>(s.encode(bytes))), bytesOf(out.back().second));  // and back
      char* written = nullptr;
      size_t n = 0;
      FILE* fp = open_memstream(&written, &n);
      s.Write(fp);
      fclose(fp);
      EXPECT_EQ(std::string(written, n), bytesOf(out.back().second));
      free(written);
    } else if (f.full() || f.fill(src) <= 0)
      return out;
  }
}

TEST(Framer, ChosenStreams) {
  const Record a{1100, 1, "0123456789"}, b{2000, 2, "ab"}, c{3100, 4, "ij"}, d{4200, 5, "kl"};
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  const Record end{5, 3, marker}, almost{5, 3, marker.substr(0, 254) + "x"};
  const std::string A = bytesOf(a), B = bytesOf(b), D = bytesOf(d, true);
  const std::string lostByte = bytesOf(a, true).substr(1) + bytesOf(b, true) + bytesOf(c, true) + D + D + D;
  const struct {
    const char* what;
    bool framed, datagrams;
    std::vector<std::string> in;
    Results want;
  } cases[] = {
      {"split across reads", false, false, {A.substr(0, 3), A.substr(3) + B.substr(0, 6), B.substr(6)}, {{1, a}, {1, b}}},
      {"a piece of a sample at the end is no sample", false, false, {A + B.substr(0, 7)}, {{1, a}}},
      {"missing end-of-message byte: one error, resumed after the next one", true, false,
       {bytesOf(a, true) + B + bytesOf(c, true) + bytesOf(d, true)}, {{1, a}, {2, b}, {1, d}}},
      // Misread from the lost byte on, the header claims 48 data bytes.
      {"a byte lost from a header: resumed after the next end-of-message byte, not after what it claimed", true, false,
       {lostByte}, {{2, Record{0x44c01, 10, lostByte.substr(6, 48)}}, {1, b}, {1, c}, {1, d}, {1, d}, {1, d}}},
      {"datagrams: a sample its datagram does not complete is dropped", false, true,
       {A.substr(0, 9), A.substr(9) + B, A + B}, {{1, a}, {1, b}}},
      {"end-of-data marker, after one that is not quite", false, false,
       {bytesOf(almost) + bytesOf(end) + B}, {{1, almost}, {3, end}, {1, b}}},
  };
  for (const auto& c : cases) EXPECT_TRUE(frame(c.in, c.framed, c.datagrams) == c.want) << c.what;
}

// Random samples of even bytes only (so that no byte is 3 but the
// end-of-message bytes, and a framing error can resynchronise only on a
// true sample boundary), with some end-of-message bytes spoilt or removed.
// A damaged sample is reported once as an error; the framer then hunts for
// the next end-of-message byte, giving up the samples up to the first
// intact one.
TEST(Framer, RandomStreamsInRandomPieces) {
  for (int round = 1; round <= 40; ++round) {
    std::mt19937 rng(round);
    const bool framed = round % 4 != 0, damaged = framed && round % 2 == 1;
    std::string bytes;
    Results want;
    for (int i = 0, lost = 0; i < 300; ++i) {
      Record r{static_cast<uint32_t>(rng() % 86400000) & 0xfefefefe, static_cast<uint8_t>(rng() & 0xfe), ""};
      for (int k = 2 * static_cast<int>(rng() % (i % 4 == 0 ? 128 : 12)); k > 0; --k) r.data += static_cast<char>(rng() & 0xfe);
      const int damage = damaged && i < 299 && rng() % 12 == 0 ? 1 + static_cast<int>(rng() % 2) : 0;
      bytes += bytesOf(r);
      if (damage == 1) bytes += static_cast<char>(rng() & 0xfe);
      if (framed && damage == 0) bytes += '\3';
      if (!lost) want.emplace_back(damage ? 2 : 1, r);
      lost = damage;
    }
    std::vector<std::string> pieces;
    for (size_t pos = 0; pos < bytes.size(); pos += pieces.back().size())
      pieces.push_back(bytes.substr(pos, 1 + rng() % 700));
    EXPECT_TRUE(frame(pieces, framed) == want) << "start value " << round;
  }
}

TEST(RawDataInput, EndOfDataMarkerEndsTheInput) {
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  MemoryInput in({bytesOf(Record{5, 3, marker})}, true, 9, 0);
  RawSample s;
  EXPECT_EQ(thrownText<oru::EOFException>([&] { in.readSample(&s); }), "EOFException: mem: nextSample: ");
}

TEST(RawDataInput, CaughtSignalEndsTheNextRead) {
  MemoryInput in({}, false, 0, 0);
  RawSample s;
  EXPECT_EXIT(
      {
        raise(SIGTERM);
        try {
          in.readSample(&s);
        } catch (const oru::InterruptedException& e) {
          fprintf(stderr, "%s\n", e.what());
          exit(0);
        }
      },
      ::testing::ExitedWithCode(0), "sighandler:  signal= 15\nInterruptedException: : mem: readBuffer");
}

}  // namespace
