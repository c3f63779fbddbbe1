// Cutting byte streams into raw samples: the sample's text and file forms,
// random streams in random pieces, corrupted framing, datagrams, the
// end-of-data marker and signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <sstream>

#include "base/Exception.h"
#include "samples/Sample.h"
#include "lib/samples/sample_support.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

Record recordOf(const RawSample& s) {
  return Record{static_cast<uint32_t>(s.Msecs()), s.chan, std::string(static_cast<const char*>(s.data), s.size())};
}

TEST(RawSampleForm, TextAndWireBytes) {
  const std::string wire = bytesOf(Record{43200123, 7, std::string("\x01\x00\xff\xff\x34", 5)});
  RawSample s;
  memcpy(&s.tt, wire.data(), 4);
  s.chan = 7;
  s.len = 5;
  s.data.copyFrom(wire.data() + 6, 5);
  std::ostringstream os;
  os << s;
  EXPECT_EQ(os.str(), "43200123 7 5 1 -1");  // host-order words; the odd byte is no word
  FILE* f = tmpfile();
  s.Write(f);
  EXPECT_EQ(ftell(f), static_cast<long>(wire.size()));
  rewind(f);
  std::string back(wire.size(), '\0');
  EXPECT_EQ(fread(&back[0], 1, back.size(), f), wire.size());
  EXPECT_EQ(back, wire);
  fclose(f);
}

// Random samples with no byte 3 but the end-of-message bytes, so that a
// framing error can resynchronise only on a true sample boundary.
std::vector<Record> randomSamples(std::mt19937& rng, int n) {
  auto byte = [&rng]() {
    uint8_t b;
    do b = static_cast<uint8_t>(rng()); while (b == 3);
    return b;
  };
  std::vector<Record> v;
  for (int i = 0; i < n; ++i) {
    static const uint8_t kTagBytes[] = {0, 1, 2, 4};  // below a day, no byte 3
    Record s{0, byte(), ""};
    for (int k = 0; k < 4; ++k) s.ms = s.ms << 8 | kTagBytes[rng() % 4];
    int len;
    do len = byte() % (i % 4 == 0 ? 256 : 24); while (len == 3);
    for (int k = 0; k < len; ++k) s.data += static_cast<char>(byte());
    v.push_back(s);
  }
  return v;
}

// Writes bytes to wfd in random pieces, reading after each, and collects
// every result until the input has nothing more.
std::vector<std::pair<int, Record>> feed(RawDataInput& in, int wfd, const std::string& bytes, std::mt19937& rng) {
  std::vector<std::pair<int, Record>> out;
  RawSample s;
  for (size_t pos = 0; pos < bytes.size();) {
    const size_t piece = std::min(bytes.size() - pos, static_cast<size_t>(1 + rng() % 700));
    EXPECT_EQ(write(wfd, bytes.data() + pos, piece), static_cast<ssize_t>(piece));
    pos += piece;
    for (int r; (r = in.readSample(&s)) != 0;) out.emplace_back(r, recordOf(s));
  }
  return out;
}

// damage[i]: 0 intact, 1 end-of-message byte spoilt, 2 removed.  A damaged
// sample is reported once with result 2; the framer then hunts for the next
// end-of-message byte, giving up the samples up to the first intact one.
void expectFraming(const std::vector<Record>& samples, const std::vector<int>& damage, bool framed, std::mt19937& rng) {
  std::string bytes;
  std::vector<std::pair<int, Record>> want;
  for (size_t i = 0; i < samples.size(); ++i) {
    bytes += bytesOf(samples[i]);
    if (framed && damage[i] == 0) bytes += '\3';
    if (damage[i] == 1) bytes += static_cast<char>(4 + rng() % 250);
  }
  for (size_t i = 0; i < samples.size(); ++i) {
    want.emplace_back(damage[i] ? 2 : 1, samples[i]);
    if (damage[i])
      for (++i; i < samples.size() && damage[i];) ++i;
  }
  int sv[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv), 0);
  ASSERT_EQ(fcntl(sv[1], F_SETFL, O_NONBLOCK), 0);
  std::unique_ptr<RawDataInput> in(framed ? static_cast<RawDataInput*>(new OwlFastoutRawDataInput("s", "t", 4, sv[0]))
                                          : new TernRawDataInput("t", 4, sv[0]));
  in->setNonBlocking(1);
  const auto got = feed(*in, sv[1], bytes, rng);
  close(sv[0]);
  close(sv[1]);
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i].first, want[i].first) << i;
    ASSERT_TRUE(got[i].second.ms == want[i].second.ms && got[i].second.chan == want[i].second.chan &&
                got[i].second.data == want[i].second.data)
        << i;
  }
}

TEST(Framer, RandomStreamsInRandomPiecesArriveWholeAndInOrder) {
  for (int round = 1; round <= 20; ++round) {
    std::mt19937 rng(round);
    const std::vector<Record> samples = randomSamples(rng, 400);
    for (bool framed : {false, true}) {
      SCOPED_TRACE(testing::Message() << "start value " << round << (framed ? " framed" : ""));
      expectFraming(samples, std::vector<int>(samples.size(), 0), framed, rng);
    }
  }
}

TEST(Framer, CorruptionCostsOnlyWhatResynchronisationGivesUp) {
  for (int round = 1; round <= 30; ++round) {
    SCOPED_TRACE(testing::Message() << "start value " << round);
    std::mt19937 rng(1000 + round);
    const std::vector<Record> samples = randomSamples(rng, 300);
    std::vector<int> damage(samples.size(), 0);
    for (size_t i = 0; i + 1 < samples.size(); ++i)
      if (rng() % 12 == 0) damage[i] = 1 + static_cast<int>(rng() % 2);
    expectFraming(samples, damage, true, rng);
  }
}

// A module sending datagrams: a sample cut short by its datagram's end is
// dropped, never completed from the next datagram.
class DatagramInput : public RawDataInput {
 public:
  explicit DatagramInput(int fd) : RawDataInput(fd, 0, 8192) { datagramSocket = 1; }
};

TEST(Framer, DatagramsAreFramedOneByOne) {
  const std::string a = bytesOf(Record{1000, 1, "0123456789"}), b = bytesOf(Record{2000, 2, "ab"});
  int dg[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, dg), 0);
  DatagramInput in(dg[0]);
  in.setNonBlocking(1);
  for (const std::string& d : {a.substr(0, 9), a.substr(9) + b, a + b})
    ASSERT_EQ(write(dg[1], d.data(), d.size()), static_cast<ssize_t>(d.size()));
  RawSample s;
  std::vector<std::string> seen;
  while (in.readSample(&s) != 0) seen.push_back(recordOf(s).data);
  EXPECT_EQ(seen, (std::vector<std::string>{"0123456789", "ab"}));
  close(dg[0]);
  close(dg[1]);
}

TEST(Framer, EndOfDataMarkerAndLastFileEndTheInput) {
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  std::string almost = marker;
  almost[254] = 'x';
  std::string one = sample_test::writeScratch("one.raw", bytesOf(Record{5, 3, almost}) + bytesOf(Record{6, 4, "x"}).substr(0, 5));
  std::string two = sample_test::writeScratch("two.raw", bytesOf(Record{7, 4, marker}) + bytesOf(Record{8, 3, marker}));
  std::vector<char*> names{&one[0], &two[0]};
  FilesRawDataInput in(9, names, {0.0});
  RawSample s;
  std::vector<int> ms;
  try {
    for (;;) {
      ASSERT_EQ(in.readSample(&s), 1);
      EXPECT_EQ(s.ternIndex, 9);
      ms.push_back(s.Msecs());
    }
  } catch (const oru::EOFException& e) {
    EXPECT_EQ(e.toString(), "EOFException: " + two + ": nextSample: ");
  }
  // The piece of a sample at the end of the first file is not invented into one.
  EXPECT_EQ(ms, (std::vector<int>{5, 7}));
  EXPECT_THROW(in.readSample(&s), oru::EOFException);
  std::vector<char*> missing{const_cast<char*>("/nonexistent/x.raw")};
  EXPECT_THROW(FilesRawDataInput(0, missing, {0.0}), oru::IOException);
  EXPECT_THROW(FilesRawDataInput(0, names, {}), oru::Exception);
}

TEST(Framer, CaughtSignalEndsTheNextRead) {
  EXPECT_EXIT(
      {
        int fds[2];
        if (pipe(fds) != 0) exit(2);
        OwlFastoutRawDataInput in("/dev/ttyS9", "mod", 0, fds[0]);
        raise(SIGTERM);
        RawSample s;
        try {
          in.readSample(&s);
        } catch (const oru::InterruptedException& e) {
          fprintf(stderr, "%s\n", e.toString().c_str());
          exit(0);
        }
        exit(3);
      },
      ::testing::ExitedWithCode(0), "sighandler:  signal= 15\nInterruptedException: : mod \\(via /dev/ttyS9\\): readBuffer");
}

}  // namespace
