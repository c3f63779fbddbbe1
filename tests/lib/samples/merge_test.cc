// Merging inputs in time order, in memory: the order, ties, inputs that end
// (in the middle of the index range too), tossed time tags, inputs with
// nothing to read now, and the property that every sample of every input
// comes out once, in order, the usual way or the long way alike.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "base/Exception.h"
#include "samples/RawDataInputs.h"
#include "time/UTime.h"
#include "lib/samples/sample_support.h"

namespace {

using namespace sample_test;

const double kDay = UTime(0, 2026, 11, 21, 0, 0, 0.0f).val();
const uint32_t kNoon = 12 * 3600000, kLate = 3 * 3600000;  // 3 h after noon: tossed

// A file-like input of samples at noon plus the given milliseconds.
RawDataInput* input(int index, const std::vector<uint32_t>& ms) {
  std::string bytes;
  for (uint32_t m : ms) bytes += bytesOf(Record{kNoon + m, static_cast<uint8_t>(index), std::string(2, 'x')});
  return new MemoryInput({bytes}, true, index, kDay + 43200);
}

typedef std::vector<std::pair<int, uint32_t>> Order;  // (input, milliseconds after noon)

// Everything the merge hands out, checking each time against its tag.
Order drain(RawDataInputs& m) {
  Order out;
  double t;
  try {
    for (RawSample* s; (s = m.getSample(t)) != nullptr;) {
      const uint32_t ms = recordOf(*s).ms - kNoon;
      EXPECT_EQ(t, ms == kLate ? TimeTagGuard::BIGBANG : kDay + 43200 + ms * 0.001);
      out.emplace_back(s->ternIndex, ms);
    }
  } catch (const oru::EOFException& e) {
    EXPECT_EQ(e.toString(), "EOFException: all inputs: getSample: ");
    EXPECT_THROW(m.getSample(t), oru::EOFException);  // for good
  }
  return out;
}

TEST(Merge, Order) {
  const struct {
    const char* what;
    std::vector<std::vector<uint32_t>> inputs;
    Order want;
  } cases[] = {
      {"two inputs interleave", {{1, 3}, {2, 4}}, {{0, 1}, {1, 2}, {0, 3}, {1, 4}}},
      // Equal times go out in the order they were read ahead: input 1's 5
      // was read when its 2 went out, input 0's only when its 3 did.
      {"ties, an input ending first from the middle, an empty one",
       {{1, 3, 5, 40}, {2, 5}, {4, 30, 50}, {}},
       {{0, 1}, {1, 2}, {0, 3}, {2, 4}, {1, 5}, {0, 5}, {2, 30}, {0, 40}, {2, 50}}},
      {"a tossed tag goes out at once", {{0, 1000, kLate, 1500}, {500, 1200, 1400}},
       {{0, 0}, {1, 500}, {0, 1000}, {0, kLate}, {1, 1200}, {1, 1400}, {0, 1500}}},
  };
  for (const auto& c : cases) {
    RawDataInputs m;
    for (size_t i = 0; i < c.inputs.size(); ++i) m.addInput(input(static_cast<int>(i), c.inputs[i]));
    EXPECT_EQ(drain(m), c.want) << c.what;
    EXPECT_EQ(m.size(), 0);
  }
}

// A live input: nothing now at first, then a sample without its
// end-of-message byte, given up with the one after it; nothing else lost.
TEST(Merge, InputWithNothingNowWaitsAndLosesNothing) {
  const std::string bytes = bytesOf(Record{kNoon, 1, "ab"}, true) + bytesOf(Record{kNoon + 1, 2, "cd"}) +
                            bytesOf(Record{kNoon + 2, 4, "ef"}, true) + bytesOf(Record{kNoon + 4, 5, "gh"}, true);
  RawDataInputs m;
  m.addInput(new MemoryInput({"", "", bytes}, false, 7, kDay + 43200, true));
  double t;
  EXPECT_EQ(m.getSample(t), nullptr);
  std::vector<int> chans;
  for (RawSample* s; (s = m.getSample(t)) != nullptr;) chans.push_back(s->chan);
  EXPECT_EQ(chans, (std::vector<int>{1, 5}));
  EXPECT_EQ(m.size(), 1);
}

TEST(Merge, RandomInputsComeOutWholeAndInTimeOrder) {
  for (int round = 1; round <= 12; ++round) {
    std::mt19937 rng(round);
    RawDataInputs m;
    Order want;
    for (int i = 0, n = 1 + static_cast<int>(rng() % 16); i < n; ++i) {
      std::vector<uint32_t> ms(rng() % 200);
      for (size_t k = 0; k < ms.size(); ++k) want.emplace_back(i, ms[k] = (k ? ms[k - 1] : 0) + rng() % 30);
      m.addInput(input(i, ms));
    }
    Order got = drain(m);
    for (size_t k = 1; k < got.size(); ++k) ASSERT_LE(got[k - 1].second, got[k].second);
    std::sort(got.begin(), got.end());
    std::sort(want.begin(), want.end());
    ASSERT_EQ(got, want) << "start value " << round;
  }
}

// One input through the merge gives what the input itself gives, read by
// readSample and tt_to_secs: across buffer refills, for data shorter and
// longer than a block copy, with tags the guard tosses or doubts, and up
// to the end-of-data marker.
TEST(Merge, OneInputReadsAsTheInputItself) {
  std::mt19937 rng(7);
  std::string bytes;
  for (uint32_t k = 0; k < 40000; ++k) {
    uint32_t ms = kNoon + k * 10;
    if (k % 997 == 5) ms += kLate;   // tossed as too late
    if (k % 1499 == 7) ms -= 600000;  // tossed as too early, at first
    std::string data(rng() % 8 == 0 ? rng() % 256 : rng() % 34, '\0');
    for (char& c : data) c = static_cast<char>(rng());
    bytes += bytesOf(Record{ms, static_cast<uint8_t>(rng() % 200), data});
  }
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  bytes += bytesOf(Record{kNoon, 3, marker}) + bytesOf(Record{kNoon, 9, "never"});

  typedef std::tuple<int, std::string, double> Got;
  std::vector<Got> direct, merged;
  MemoryInput in({bytes}, true, 4, kDay + 43200);
  RawSample s;
  try {
    while (in.readSample(&s) == 1) direct.emplace_back(s.chan, recordOf(s).data, in.tt_to_secs(static_cast<long>(s.tt)));
  } catch (const oru::EOFException&) {
  }
  RawDataInputs m;
  m.addInput(new MemoryInput({bytes}, true, 4, kDay + 43200));
  double t;
  try {
    for (RawSample* p; (p = m.getSample(t)) != nullptr;) merged.emplace_back(p->chan, recordOf(*p).data, t);
  } catch (const oru::EOFException&) {
  }
  EXPECT_EQ(direct.size(), 40000u);
  EXPECT_EQ(merged, direct);
}

}  // namespace
