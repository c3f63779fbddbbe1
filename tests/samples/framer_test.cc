// Cutting byte streams into raw samples: the text and file forms of a
// sample, random streams cut into random reads, corruption of framed
// streams, datagrams, the end-of-data marker and interruption.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <set>
#include <sstream>

#include "Exception.h"
#include "Sample.h"
#include "samples/sample_support.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

std::string dataOf(const RawSample& s) { return std::string(static_cast<const char*>(s.data), s.size()); }

bool same(const RawSample& s, const Record& e) {
  return s.Msecs() == static_cast<int>(e.ms) && s.chan == e.chan && s.len == e.data.size() &&
         dataOf(s) == e.data;
}

TEST(RawSampleForm, TextIsMsecsChannelSizeAndWholeWords) {
  RawSample s;
  const std::string b = bytesOf(Record{43200123, 7, std::string("\x01\x00\xff\xff\x34", 5)});
  memcpy(&s.tt, b.data(), 4);
  s.chan = 7;
  s.len = 5;
  s.data.copyFrom(b.data() + 6, 5);
  std::ostringstream os;
  os << s;
  // Words in host order; the odd last byte is not a word.
  EXPECT_EQ(os.str(), "43200123 7 5 1 -1");

  s.len = 0;
  s.data.copyFrom(nullptr, 0);
  os.str("");
  os << s;
  EXPECT_EQ(os.str(), "43200123 7 0");
}

TEST(RawSampleForm, WriteKeepsTheWireBytes) {
  const Record rec{86399999, 255, std::string(255, '\x7f')};
  const std::string wire = bytesOf(rec);
  RawSample s;
  memcpy(&s.tt, wire.data(), 4);
  s.chan = 255;
  s.len = 255;
  s.data.copyFrom(wire.data() + 6, 255);
  char* buf = nullptr;
  size_t n = 0;
  FILE* f = open_memstream(&buf, &n);
  ASSERT_NE(f, nullptr);
  s.Write(f);
  fclose(f);
  EXPECT_EQ(std::string(buf, n), wire);
  free(buf);

  FILE* ro = fopen("/dev/null", "r");
  ASSERT_NE(ro, nullptr);
  try {
    s.Write(ro);
    fflush(ro);
    ADD_FAILURE() << "writing to a read-only stream succeeded";
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString().rfind("IOException: output file: write: ", 0), 0u) << e.toString();
  }
  fclose(ro);
}

// Random samples whose bytes never hold the end-of-message byte, so that a
// framing error can only ever resynchronise on a true sample boundary.
std::vector<Record> randomSamples(std::mt19937& rng, int n) {
  std::vector<Record> v;
  auto byte = [&rng]() {
    uint8_t b;
    do b = static_cast<uint8_t>(rng()); while (b == 3);
    return b;
  };
  for (int i = 0; i < n; ++i) {
    Record s;
    do s.ms = rng() % 86400000u; while ((htonl(s.ms) & 0xff) == 3 || ((htonl(s.ms) >> 8) & 0xff) == 3 ||
                                       ((htonl(s.ms) >> 16) & 0xff) == 3 || (htonl(s.ms) >> 24) == 3);
    s.chan = byte();
    int len;
    do len = static_cast<int>(rng() % (rng() % 4 == 0 ? 256 : 24)); while (len == 3);
    for (int k = 0; k < len; ++k) s.data += static_cast<char>(byte());
    v.push_back(s);
  }
  return v;
}

// A pipe whose read end an input reads without blocking, so that the test
// decides exactly which bytes each read finds.
struct Pipe {
  Pipe() {
    EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
    EXPECT_GT(fcntl(fds[1], F_SETPIPE_SZ, 1 << 20), 0);
  }
  ~Pipe() {
    close(fds[0]);
    if (fds[1] >= 0) close(fds[1]);
  }
  void put(const std::string& b) { ASSERT_EQ(write(fds[1], b.data(), b.size()), static_cast<ssize_t>(b.size())); }
  int fds[2];
};

struct Result {
  int r;
  Record s;
};

// Writes bytes to wfd in random pieces, reads after each, and collects
// every result until the input has nothing more.
std::vector<Result> feedInPieces(RawDataInput& in, int wfd, const std::string& bytes, std::mt19937& rng) {
  std::vector<Result> out;
  RawSample s;
  for (size_t pos = 0; pos < bytes.size();) {
    const size_t piece = std::min(bytes.size() - pos, static_cast<size_t>(1 + rng() % 700));
    EXPECT_EQ(write(wfd, bytes.data() + pos, piece), static_cast<ssize_t>(piece));
    pos += piece;
    int r;
    while ((r = in.readSample(&s)) != 0)
      out.push_back({r, Record{static_cast<uint32_t>(s.Msecs()), s.chan, dataOf(s)}});
  }
  return out;
}

TEST(Framer, RandomStreamsInRandomPiecesArriveWholeAndInOrder) {
  for (int round = 1; round <= 20; ++round) {
    std::mt19937 rng(round);
    const std::vector<Record> samples = randomSamples(rng, 400);
    for (bool framed : {false, true}) {
      std::vector<Result> got;
      if (framed) {
        // A module's fast output: end-of-message bytes, checked.
        Pipe p;
        OwlFastoutRawDataInput in("pipe", "t", 4, p.fds[0]);
        in.setNonBlocking(1);
        got = feedInPieces(in, p.fds[1], bytesOf(samples, true), rng);
      } else {
        // A module's socket: a plain stream of samples.
        int sv[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv), 0);
        ASSERT_EQ(fcntl(sv[1], F_SETFL, O_NONBLOCK), 0);
        TernRawDataInput in("t", 4, sv[0]);
        in.setNonBlocking(1);
        got = feedInPieces(in, sv[1], bytesOf(samples), rng);
        close(sv[0]);
        close(sv[1]);
      }
      ASSERT_EQ(got.size(), samples.size()) << "start value " << round << (framed ? " framed" : "");
      for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i].r, 1);
        ASSERT_EQ(got[i].s.ms, samples[i].ms) << i;
        ASSERT_EQ(got[i].s.chan, samples[i].chan) << i;
        ASSERT_EQ(got[i].s.data, samples[i].data) << i;
      }
    }
  }
}

// Each corruption removes or spoils one end-of-message byte.  The framer
// reports the spoilt sample once (result 2), hunts for the next intact
// end-of-message byte and goes on after it: the samples up to that byte are
// given up, every other sample arrives intact, and nothing else arrives.
TEST(Framer, CorruptionCostsOnlyWhatResynchronisationGivesUp) {
  for (int round = 1; round <= 30; ++round) {
    std::mt19937 rng(1000 + round);
    const std::vector<Record> samples = randomSamples(rng, 300);
    std::vector<int> damage(samples.size(), 0);  // 0 intact, 1 spoilt, 2 removed
    for (size_t i = 0; i + 1 < samples.size(); ++i)
      if (rng() % 12 == 0) damage[i] = 1 + static_cast<int>(rng() % 2);
    std::string bytes;
    for (size_t i = 0; i < samples.size(); ++i) {
      bytes += bytesOf(samples[i]);
      if (damage[i] == 0) bytes += '\3';
      if (damage[i] == 1) bytes += static_cast<char>(4 + rng() % 250);
    }
    // What the resynchronisation rule gives: a damaged sample k is reported
    // with result 2, and samples k+1 up to the first intact one are lost.
    std::vector<Result> want;
    for (size_t i = 0; i < samples.size(); ++i) {
      if (damage[i] == 0) {
        want.push_back({1, samples[i]});
        continue;
      }
      want.push_back({2, samples[i]});
      ++i;
      while (i < samples.size() && damage[i] != 0) ++i;
    }
    Pipe p;
    OwlFastoutRawDataInput in("pipe", "t", 0, p.fds[0]);
    in.setNonBlocking(1);
    const std::vector<Result> got = feedInPieces(in, p.fds[1], bytes, rng);
    ASSERT_EQ(got.size(), want.size()) << "start value " << round;
    for (size_t i = 0; i < got.size(); ++i) {
      ASSERT_EQ(got[i].r, want[i].r) << i;
      ASSERT_EQ(got[i].s.ms, want[i].s.ms) << i;
      ASSERT_EQ(got[i].s.data, want[i].s.data) << i;
    }
  }
}

TEST(Framer, MissingEndOfMessageGivesOneResultTwoThenResumes) {
  // No byte but the end-of-message bytes may be 3 here.
  const Record a{1100, 1, "abcd"}, b{2000, 2, "efgh"}, c{3100, 4, "ijkl"};
  Pipe p;
  p.put(bytesOf(a, true) + bytesOf(b) + bytesOf(c, true) + bytesOf(a, true));
  OwlFastoutRawDataInput in("pipe", "t", 0, p.fds[0]);
  in.setNonBlocking(1);
  RawSample s;
  ASSERT_EQ(in.readSample(&s), 1);
  EXPECT_TRUE(same(s, a));
  ASSERT_EQ(in.readSample(&s), 2);
  EXPECT_TRUE(same(s, b));
  // c ended the hunt for the next end-of-message byte.
  ASSERT_EQ(in.readSample(&s), 1);
  EXPECT_TRUE(same(s, a));
  EXPECT_EQ(in.readSample(&s), 0);
}

// A module sending datagrams: each read is one datagram, and a sample cut
// short by its datagram's end is dropped instead of waiting for more.
class DatagramInput : public RawDataInput {
 public:
  explicit DatagramInput(int fd) : RawDataInput(fd, 0, 8192) { datagramSocket = 1; }
};

TEST(Framer, SplitSampleWaitsOnStreamsAndIsDroppedFromDatagrams) {
  const Record a{1000, 1, "0123456789"}, b{2000, 2, "ab"};
  const std::string wa = bytesOf(a), wb = bytesOf(b);

  int st[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, st), 0);
  {
    TernRawDataInput in("t", 0, st[0]);
    in.setNonBlocking(1);
    RawSample s;
    ASSERT_EQ(write(st[1], wa.data(), 9), 9);
    EXPECT_EQ(in.readSample(&s), 0);
    ASSERT_EQ(write(st[1], wa.data() + 9, wa.size() - 9), static_cast<ssize_t>(wa.size() - 9));
    ASSERT_EQ(in.readSample(&s), 1);
    EXPECT_TRUE(same(s, a));
  }
  close(st[0]);
  close(st[1]);

  int dg[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, dg), 0);
  DatagramInput in(dg[0]);
  in.setNonBlocking(1);
  RawSample s;
  ASSERT_EQ(write(dg[1], wa.data(), 9), 9);
  EXPECT_EQ(in.readSample(&s), 0);
  // What follows a's first piece does not start a sample: the datagram
  // cannot be framed and is dropped as a whole.
  const std::string rest = wa.substr(9) + wb;
  ASSERT_EQ(write(dg[1], rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
  const std::string whole = wa + wb;
  ASSERT_EQ(write(dg[1], whole.data(), whole.size()), static_cast<ssize_t>(whole.size()));
  std::vector<std::string> seen;
  while (in.readSample(&s) != 0) seen.push_back(dataOf(s));
  EXPECT_EQ(seen, (std::vector<std::string>{a.data, b.data}));
  close(dg[0]);
  close(dg[1]);
}

TEST(Framer, EndOfDataMarkerEndsTheInput) {
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  std::string almost = marker;
  almost[254] = 'x';
  const std::string path = sample_test::writeScratch(
      "marker.raw", bytesOf(Record{5, 3, almost}) + bytesOf(Record{6, 4, marker}) + bytesOf(Record{7, 3, marker}) +
                        bytesOf(Record{8, 1, "zz"}));
  std::vector<char*> names{const_cast<char*>(path.c_str())};
  FilesRawDataInput in(0, names, {0.0});
  RawSample s;
  ASSERT_EQ(in.readSample(&s), 1);
  EXPECT_EQ(s.Msecs(), 5);
  ASSERT_EQ(in.readSample(&s), 1);
  EXPECT_EQ(s.Msecs(), 6);
  try {
    in.readSample(&s);
    ADD_FAILURE() << "the end-of-data marker was read as a sample";
  } catch (const oru::EOFException& e) {
    EXPECT_EQ(e.toString(), "EOFException: " + path + ": nextSample: ");
  }
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
          exit(RawDataInput::interruptSet ? 0 : 3);
        }
        exit(4);
      },
      ::testing::ExitedWithCode(0),
      "sighandler:  signal= 15\nInterruptedException: : mod \\(via /dev/ttyS9\\): readBuffer");
}

TEST(Framer, FilesFollowOneAnotherAndEndWithTheLast) {
  const Record a{100, 1, "aa"}, b{200, 2, "bbbb"}, c{300, 3, ""};
  // The second file ends inside a sample: the piece is not invented into
  // anything and the third file starts clean.
  const std::string one = sample_test::writeScratch("one.raw", bytesOf(a));
  const std::string two = sample_test::writeScratch("two.raw", bytesOf(b) + bytesOf(c).substr(0, 5));
  const std::string three = sample_test::writeScratch("three.raw", bytesOf(c));
  std::vector<char*> names{const_cast<char*>(one.c_str()), const_cast<char*>(two.c_str()),
                           const_cast<char*>(three.c_str())};
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
    EXPECT_EQ(e.toString(), "EOFException: " + three + ": openNextFile: ");
  }
  EXPECT_EQ(ms, (std::vector<int>{100, 200, 300}));

  std::vector<char*> missing{const_cast<char*>("/nonexistent/x.raw")};
  try {
    FilesRawDataInput bad(0, missing, {0.0});
    ADD_FAILURE();
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), "IOException: /nonexistent/x.raw: open: No such file or directory");
  }
  EXPECT_THROW(FilesRawDataInput(0, names, {}), oru::Exception);
}

}  // namespace
