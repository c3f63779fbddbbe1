// Merging inputs in time order: order and ties, inputs that end, tossed
// time tags, inputs with nothing to read now, and a random property: all
// samples of all files come out once, in time order.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "Exception.h"
#include "RawDataInputs.h"
#include "UTime.h"
#include "samples/sample_support.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

const double kDay = UTime(0, 2026, 11, 21, 0, 0, 0.0f).val();
const uint32_t kNoon = 12 * 3600000;

// A file input of the given samples, starting at noon of kDay.
RawDataInput* fileInput(const std::string& name, int index, const std::vector<Record>& samples) {
  const std::string path = sample_test::writeScratch(name, bytesOf(samples));
  std::vector<char*> names{const_cast<char*>(path.c_str())};
  return new FilesRawDataInput(index, names, {kDay + 43200});
}

struct Out {
  int input;
  uint32_t ms;
  double t;
  bool operator==(const Out& o) const { return input == o.input && ms == o.ms && t == o.t; }
};

std::vector<Out> drain(RawDataInputs& m) {
  std::vector<Out> out;
  try {
    for (;;) {
      double t;
      RawSample* s = m.getSample(t);
      if (s == nullptr) break;
      out.push_back({s->ternIndex, static_cast<uint32_t>(s->Msecs()), t});
    }
  } catch (const oru::EOFException& e) {
    EXPECT_EQ(e.toString(), "EOFException: all inputs: getSample: ");
  }
  return out;
}

std::vector<uint32_t> msOf(const std::vector<Out>& v) {
  std::vector<uint32_t> ms;
  for (const Out& o : v) ms.push_back(o.ms - kNoon);
  return ms;
}

TEST(Merge, TimeOrderAcrossInputs) {
  RawDataInputs m;
  m.addInput(fileInput("a.raw", 0, {{kNoon + 1, 1, ""}, {kNoon + 3, 1, ""}}));
  m.addInput(fileInput("b.raw", 1, {{kNoon + 2, 2, ""}, {kNoon + 4, 2, ""}}));
  const std::vector<Out> out = drain(m);
  EXPECT_EQ(msOf(out), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(out[1].input, 1);
  EXPECT_DOUBLE_EQ(out[0].t, kDay + 43200.001);
  // Ended for good: every later call says so.
  double t;
  EXPECT_THROW(m.getSample(t), oru::EOFException);
  EXPECT_THROW(m.getSample(t), oru::EOFException);
}

TEST(Merge, EqualTimesGoOutInTheOrderTheyWereReadAhead) {
  RawDataInputs m;
  m.addInput(fileInput("a.raw", 0, {{kNoon + 5, 1, ""}, {kNoon + 7, 1, ""}}));
  m.addInput(fileInput("b.raw", 1, {{kNoon + 5, 2, ""}, {kNoon + 6, 2, ""}}));
  const std::vector<Out> out = drain(m);
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ((std::vector<int>{out[0].input, out[1].input, out[2].input, out[3].input}),
            (std::vector<int>{0, 1, 1, 0}));
}

TEST(Merge, InputsThatEndLeaveTheOthersGoing) {
  // The middle input ends first, then the first: the indices of those
  // behind them move down and the merge stays right.
  RawDataInputs m;
  m.addInput(fileInput("a.raw", 0, {{kNoon + 10, 1, ""}, {kNoon + 40, 1, ""}}));
  m.addInput(fileInput("b.raw", 1, {{kNoon + 20, 2, ""}}));
  m.addInput(fileInput("c.raw", 2, {{kNoon + 15, 3, ""}, {kNoon + 30, 3, ""}, {kNoon + 50, 3, ""}, {kNoon + 60, 3, ""}}));
  m.addInput(fileInput("empty.raw", 3, {}));
  EXPECT_EQ(m.size(), 3);
  const std::vector<Out> out = drain(m);
  EXPECT_EQ(msOf(out), (std::vector<uint32_t>{10, 15, 20, 30, 40, 50, 60}));
  EXPECT_EQ(m.size(), 0);
}

TEST(Merge, TossedTagGoesOutAtOnce) {
  RawDataInputs m;
  m.addInput(fileInput("a.raw", 0, {{kNoon, 1, ""}, {kNoon + 1000, 1, ""}, {kNoon + 3 * 3600000, 1, ""}, {kNoon + 1500, 1, ""}}));
  m.addInput(fileInput("b.raw", 1, {{kNoon + 500, 2, ""}, {kNoon + 1200, 2, ""}, {kNoon + 1400, 2, ""}}));
  const std::vector<Out> out = drain(m);
  ASSERT_EQ(out.size(), 7u);
  EXPECT_EQ(msOf(out), (std::vector<uint32_t>{0, 500, 1000, 3 * 3600000, 1200, 1400, 1500}));
  EXPECT_EQ(out[3].t, RawDataInput::BIGBANG);
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
  const uint32_t now = static_cast<uint32_t>(UTime::Msecs(static_cast<double>(time(nullptr))));
  // A good sample, one without its end-of-message byte (given up with the
  // one after it), and two good ones.
  const std::string bytes = bytesOf(Record{now, 1, "ab"}, true) + bytesOf(Record{now + 1, 2, "cd"}) +
                            bytesOf(Record{now + 2, 4, "ef"}, true) + bytesOf(Record{now + 4, 5, "gh"}, true) +
                            bytesOf(Record{now + 5, 6, "ij"}, true);
  ASSERT_EQ(write(fds[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  std::vector<int> chans;
  RawSample* s;
  while ((s = m.getSample(t)) != nullptr) {
    EXPECT_EQ(s->ternIndex, 7);
    chans.push_back(s->chan);
  }
  EXPECT_EQ(chans, (std::vector<int>{1, 5, 6}));
  close(fds[1]);
  close(fds[0]);
}

TEST(Merge, RandomFilesComeOutWholeAndInTimeOrder) {
  for (int round = 1; round <= 12; ++round) {
    std::mt19937 rng(round);
    const int ninputs = 1 + static_cast<int>(rng() % 16);
    RawDataInputs m;
    std::vector<std::tuple<uint32_t, int, int>> want;  // ms, input, sequence in input
    for (int i = 0; i < ninputs; ++i) {
      std::vector<Record> v;
      uint32_t ms = kNoon;
      const int n = static_cast<int>(rng() % 200);
      for (int k = 0; k < n; ++k) {
        ms += rng() % 30;  // ties within and across inputs
        Record s{ms, static_cast<uint8_t>(i), std::string(reinterpret_cast<char*>(&k), 2)};
        v.push_back(s);
        want.emplace_back(ms, i, k);
      }
      m.addInput(fileInput("r" + std::to_string(i) + ".raw", i, v));
    }
    std::vector<std::tuple<uint32_t, int, int>> got;
    double last = -1;
    try {
      for (;;) {
        double t;
        RawSample* s = m.getSample(t);
        ASSERT_NE(s, nullptr);
        ASSERT_GE(t, last);
        last = t;
        int16_t k;
        memcpy(&k, static_cast<const char*>(s->data), 2);
        got.emplace_back(static_cast<uint32_t>(s->Msecs()), s->ternIndex, k);
      }
    } catch (const oru::EOFException&) {
    }
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    ASSERT_EQ(got, want) << "start value " << round;
  }
}

TEST(Merge, SearchSkipsToTheTime) {
  std::vector<Record> v;
  for (uint32_t k = 0; k < 10; ++k) v.push_back({kNoon + 100 * k, 1, ""});
  std::unique_ptr<RawDataInput> in(fileInput("search.raw", 0, v));
  RawSample s;
  ASSERT_EQ(in->search(kDay + 43200.45, &s), 1);
  EXPECT_EQ(static_cast<uint32_t>(s.Msecs()), kNoon + 500);
}

}  // namespace
