// Merging inputs in time order: ties, inputs that end (in the middle of the
// index range too), tossed time tags, inputs with nothing to read now, and
// the property that every sample of every file comes out once, in order.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "base/Exception.h"
#include "samples/RawDataInputs.h"
#include "time/UTime.h"
#include "lib/samples/sample_support.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

const double kDay = UTime(0, 2026, 11, 21, 0, 0, 0.0f).val();
const uint32_t kNoon = 12 * 3600000;

// A file input of samples at noon plus the given milliseconds.
RawDataInput* fileInput(int index, const std::vector<uint32_t>& ms) {
  std::vector<Record> v;
  for (uint32_t m : ms) v.push_back({kNoon + m, static_cast<uint8_t>(index), std::string(2, static_cast<char>(v.size()))});
  std::string path = sample_test::writeScratch("m" + std::to_string(index) + ".raw", bytesOf(v));
  std::vector<char*> names{&path[0]};
  return new FilesRawDataInput(index, names, {kDay + 43200});
}

// (input, milliseconds after noon, time) of everything the merge hands out.
std::vector<std::tuple<int, uint32_t, double>> drain(RawDataInputs& m) {
  std::vector<std::tuple<int, uint32_t, double>> out;
  double t;
  try {
    for (RawSample* s; (s = m.getSample(t)) != nullptr;)
      out.emplace_back(s->ternIndex, static_cast<uint32_t>(s->Msecs()) - kNoon, t);
  } catch (const oru::EOFException& e) {
    EXPECT_EQ(e.toString(), "EOFException: all inputs: getSample: ");
    EXPECT_THROW(m.getSample(t), oru::EOFException);  // for good
  }
  return out;
}

std::vector<std::pair<int, uint32_t>> order(const std::vector<std::tuple<int, uint32_t, double>>& v) {
  std::vector<std::pair<int, uint32_t>> o;
  for (const auto& e : v) o.emplace_back(std::get<0>(e), std::get<1>(e));
  return o;
}

TEST(Merge, TimeOrderTiesAndEndingInputs) {
  RawDataInputs m;
  m.addInput(fileInput(0, {1, 3, 5, 40}));
  m.addInput(fileInput(1, {2, 5}));  // ends first, from the middle of the index range
  m.addInput(fileInput(2, {4, 30, 50}));
  m.addInput(fileInput(3, {}));  // nothing at all: dropped at once
  EXPECT_EQ(m.size(), 3);
  const auto out = drain(m);
  // Equal times go out in the order they were read ahead: input 1's 5
  // was read when its 2 went out, input 0's only when its 3 did.
  EXPECT_EQ(order(out), (std::vector<std::pair<int, uint32_t>>{
                            {0, 1}, {1, 2}, {0, 3}, {2, 4}, {1, 5}, {0, 5}, {2, 30}, {0, 40}, {2, 50}}));
  EXPECT_DOUBLE_EQ(std::get<2>(out[0]), kDay + 43200.001);
  EXPECT_EQ(m.size(), 0);
}

TEST(Merge, TossedTagGoesOutAtOnce) {
  RawDataInputs m;
  m.addInput(fileInput(0, {0, 1000, 3 * 3600000, 1500}));
  m.addInput(fileInput(1, {500, 1200, 1400}));
  const auto out = drain(m);
  ASSERT_EQ(out.size(), 7u);
  EXPECT_EQ(std::get<1>(out[3]), 3u * 3600000);
  EXPECT_EQ(std::get<2>(out[3]), RawDataInput::BIGBANG);
  EXPECT_EQ(std::get<1>(out[4]), 1200u);
}

TEST(Merge, InputWithNothingNowWaitsAndLosesNothing) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  auto* live = new OwlFastoutRawDataInput("pipe", "t", 7, fds[0]);
  live->setNonBlocking(1);
  RawDataInputs m;
  m.addInput(live);
  double t;
  EXPECT_EQ(m.getSample(t), nullptr);
  // A sample without its end-of-message byte is given up with the one
  // after it; nothing else is lost.
  const uint32_t now = static_cast<uint32_t>(UTime::Msecs(static_cast<double>(time(nullptr))));
  const std::string bytes = bytesOf(Record{now, 1, "ab"}, true) + bytesOf(Record{now + 1, 2, "cd"}) +
                            bytesOf(Record{now + 2, 4, "ef"}, true) + bytesOf(Record{now + 4, 5, "gh"}, true) +
                            bytesOf(Record{now + 5, 6, "ij"}, true);
  ASSERT_EQ(write(fds[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  std::vector<int> chans;
  for (RawSample* s; (s = m.getSample(t)) != nullptr;) chans.push_back(s->chan);
  EXPECT_EQ(chans, (std::vector<int>{1, 5, 6}));
  close(fds[1]);
  close(fds[0]);
}

TEST(Merge, RandomFilesComeOutWholeAndInTimeOrder) {
  for (int round = 1; round <= 12; ++round) {
    std::mt19937 rng(round);
    RawDataInputs m;
    std::vector<std::pair<int, uint32_t>> want;
    for (int i = 0, n = 1 + static_cast<int>(rng() % 16); i < n; ++i) {
      std::vector<uint32_t> ms(rng() % 200);
      for (size_t k = 0; k < ms.size(); ++k) want.emplace_back(i, ms[k] = (k ? ms[k - 1] : 0) + rng() % 30);
      m.addInput(fileInput(i, ms));
    }
    const auto out = drain(m);
    for (size_t k = 1; k < out.size(); ++k) ASSERT_LE(std::get<2>(out[k - 1]), std::get<2>(out[k]));
    auto got = order(out);
    std::sort(got.begin(), got.end());
    std::sort(want.begin(), want.end());
    ASSERT_EQ(got, want) << "start value " << round;
  }
}

// One input through the merge gives what the input itself gives, read by
// readSample and tt_to_secs: across buffer refills, for data shorter and
// longer than a block copy, with time tags the guard tosses or doubts, and
// up to the end-of-data marker.
TEST(Merge, OneInputReadsAsTheInputItself) {
  std::mt19937 rng(7);
  std::string bytes;
  for (uint32_t k = 0; k < 40000; ++k) {
    uint32_t ms = kNoon + k * 10;
    if (k % 997 == 5) ms += 3 * 3600000;  // tossed as too late
    if (k % 1499 == 7) ms -= 600000;      // tossed as too early, at first
    std::string data(rng() % 8 == 0 ? rng() % 256 : rng() % 34, '\0');
    for (char& c : data) c = static_cast<char>(rng());
    bytes += bytesOf(Record{ms, static_cast<uint8_t>(rng() % 200), data});
  }
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  bytes += bytesOf(Record{kNoon, 3, marker}) + bytesOf(Record{kNoon, 9, "never"});
  std::string path = sample_test::writeScratch("long.raw", bytes);
  std::vector<char*> names{&path[0]};

  typedef std::tuple<int, std::string, double> Got;
  auto got = [](const RawSample& s, double t) {
    return Got(s.chan, std::string(static_cast<const char*>(s.data), s.size()), t);
  };
  std::vector<Got> direct, merged;
  FilesRawDataInput in(4, names, {kDay + 43200});
  RawSample s;
  try {
    for (;;) {
      ASSERT_EQ(in.readSample(&s), 1);
      direct.push_back(got(s, in.tt_to_secs(static_cast<long>(s.tt))));
    }
  } catch (const oru::EOFException&) {
  }
  RawDataInputs m;
  m.addInput(new FilesRawDataInput(4, names, {kDay + 43200}));
  double t;
  try {
    for (RawSample* p; (p = m.getSample(t)) != nullptr;) {
      ASSERT_EQ(p->ternIndex, 4);
      merged.push_back(got(*p, t));
    }
  } catch (const oru::EOFException&) {
  }
  EXPECT_EQ(direct.size(), 40000u);
  EXPECT_EQ(merged, direct);
}

}  // namespace
