// Merging inputs in time order, in memory: the order, ties, inputs that end
// (in the middle of the index range too), tossed time tags handed out or
// dropped, inputs with nothing to read now, and random inputs against
// themselves read alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
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

typedef std::vector<std::pair<int, uint32_t>> Order;  // (input, milliseconds after noon)

// Everything the merge hands out, checking each time against its tag.
Order drain(RawDataInputs& m, bool trusted = false) {
  Order out;
  double t;
  try {
    for (RawSample* s; (s = trusted ? m.getTrustedSample(t) : m.getSample(t)) != nullptr;) {
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
    for (bool trusted : {false, true}) {  // getTrustedSample: the same without the tossed tags
      RawDataInputs m;
      for (size_t i = 0; i < c.inputs.size(); ++i) {  // samples at noon plus the milliseconds given
        std::string bytes;
        for (uint32_t ms : c.inputs[i]) bytes += bytesOf(Record{kNoon + ms, static_cast<uint8_t>(i), "xy"});
        m.addInput(std::make_unique<MemoryInput>(std::vector<std::string>{bytes}, true, static_cast<int>(i), kDay + 43200));
      }
      Order want = c.want;
      if (trusted) want.erase(std::remove(want.begin(), want.end(), std::make_pair(0, kLate)), want.end());
      EXPECT_EQ(drain(m, trusted), want) << c.what;
      EXPECT_EQ(m.untrusted(), static_cast<long>(c.want.size() - want.size())) << c.what;
      EXPECT_EQ(m.size(), 0);
    }
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

// Random inputs, each read on its own the long way (readSample and
// tt_to_secs) and all together through the merge, the usual way where it
// can: each input's samples come out whole, once, with the same times, and
// the merge's times never go back (tossed ones aside).  Data shorter and
// longer than a block copy, tags the guard tosses or doubts, buffer refills.
TEST(Merge, RandomInputsComeOutAsTheyReadAlone) {
  for (int round = 1; round <= 12; ++round) {
    std::mt19937 rng(round);
    const int n = 1 + static_cast<int>(rng() % 16);
    std::vector<std::vector<std::tuple<int, std::string, double>>> alone(n), merged(n);
    RawDataInputs m;
    for (int i = 0; i < n; ++i) {
      std::string bytes;
      for (uint32_t k = 0, len = rng() % 3000; k < len; ++k) {
        std::string data(rng() % 8 == 0 ? rng() % 256 : rng() % 34, '\0');
        for (char& c : data) c = static_cast<char>(rng());
        const uint32_t odd = k % 97 == 5 ? kLate : k % 149 == 7 ? -600000 : 0;  // tossed, at first
        bytes += bytesOf(Record{kNoon + k * 10 + odd, static_cast<uint8_t>(rng() % 200), data});
      }
      MemoryInput in({bytes}, false, i, kDay + 43200);
      RawSample s;
      while (in.readSample(&s) == 1) alone[i].emplace_back(s.chan, recordOf(s).data, in.tt_to_secs(static_cast<long>(s.tt)));
      m.addInput(new MemoryInput({bytes}, true, i, kDay + 43200));
    }
    double t, last = 0;
    try {
      for (RawSample* p; (p = m.getSample(t)) != nullptr;) {
        merged[p->ternIndex].emplace_back(p->chan, recordOf(*p).data, t);
        if (t == TimeTagGuard::BIGBANG) continue;
        ASSERT_GE(t, last);
        last = t;
      }
    } catch (const oru::EOFException&) {  // all have ended
    }
    ASSERT_EQ(merged, alone) << "start value " << round;
  }
}

}  // namespace
