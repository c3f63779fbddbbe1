// The time-tag guard, branch by branch: each case starts an input at a known
// time and feeds it a row of tags with the time each must get (or "tossed").
#include <gtest/gtest.h>

#include <vector>

#include "samples/Sample.h"
#include "time/UTime.h"
#include "lib/samples/sample_support.h"

namespace {

const double kDay = UTime(0, 2026, 11, 21, 0, 0, 0.0f).val();  // a UTC midnight
const double TOSSED = RawDataInput::BIGBANG;
const long H = 3600000, M = 60000;

// A live input (a socket or a serial line) started at a chosen time, as a
// file input is by its start time.
class LiveInput : public RawDataInput {
 public:
  explicit LiveInput(double start) : RawDataInput(-1, 0, 8192) {
    t0day = kDay;
    lastUT = start;
    lastTT = static_cast<long>(1000.0 * (start - kDay));
  }
};

enum Kind { LIVE, STDIN_FILE, NAMED_FILE };

struct Step {
  long ms;      // tag, milliseconds of the day
  double want;  // seconds after kDay, or TOSSED
  int times;    // how many times in a row
};

struct Case {
  const char* what;
  Kind kind;
  double start;  // seconds after kDay
  std::vector<Step> steps;
};

const Case kCases[] = {
    {"forward steps and small backward steps are accepted", LIVE, 43200,
     {{12 * H + 100, 43200.1, 1}, {12 * H + 50, 43200.05, 1}, {12 * H - 5 * M, 42900, 1}, {13 * H, 46800, 1}}},
    {"impossible tags are tossed and change nothing", LIVE, 43200,
     {{86400001, TOSSED, 1}, {-1, TOSSED, 1}, {12 * H + 10, 43200.01, 1}}},
    {"a tag of exactly 24 h is midnight of the next day", LIVE, 86100,
     {{86400000, 86400, 1}, {1000, 86401, 1}}},
    {"midnight rollover", STDIN_FILE, 86399.9, {{86399950, 86399.95, 1}, {100, 86400.1, 1}}},
    {"40 min behind on a live input: four tossed, then taken as the next day", LIVE, 43200,
     {{12 * H - 40 * M, TOSSED, 4}, {12 * H - 40 * M, 86400 + 43200 - 2400, 1}}},
    {"40 min behind from standard input: four tossed, then believed", STDIN_FILE, 43200,
     {{12 * H - 40 * M, TOSSED, 4}, {12 * H - 40 * M, 43200 - 2400, 1}}},
    {"40 min behind in a named file with a start time: eleven tossed, then believed", NAMED_FILE, 43200,
     {{12 * H - 40 * M, TOSSED, 11}, {12 * H - 40 * M, 43200 - 2400, 1}}},
    {"tossed tags never move the last accepted one", STDIN_FILE, 43200,
     {{12 * H - 40 * M, TOSSED, 2},
      {12 * H + 1000, 43201, 1},
      {12 * H - 40 * M, TOSSED, 4},
      {12 * H - 39 * M, 43200 - 2340, 1}}},
    {"10 min behind: tossed three times, the fourth accepted", LIVE, 43200,
     {{12 * H - 10 * M, TOSSED, 3}, {12 * H - 10 * M, 43200 - 600, 1}}},
    {"3 h ahead: four tossed, the fifth believed", LIVE, 43200,
     {{15 * H, TOSSED, 4}, {15 * H, 54000, 1}, {15 * H + 1, 54000.001, 1}}},
    {"more than 23 h 50 min ahead belongs to the day before", STDIN_FILE, 300,
     {{86280000, 86280 - 86400, 1}, {86290000, 86290 - 86400, 1}}},
};

std::unique_ptr<RawDataInput> inputFor(const Case& c) {
  std::vector<double> times{kDay + c.start};
  if (c.kind == LIVE) return std::unique_ptr<RawDataInput>(new LiveInput(kDay + c.start));
  static std::string empty = sample_test::writeScratch("empty.raw", "");
  std::vector<char*> names{const_cast<char*>(c.kind == NAMED_FILE ? empty.c_str() : "-")};
  return std::unique_ptr<RawDataInput>(new FilesRawDataInput(0, names, times));
}

TEST(TimeTagGuard, EveryBranch) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    std::unique_ptr<RawDataInput> in = inputFor(c);
    int row = 0;
    for (const Step& st : c.steps) {
      for (int k = 0; k < st.times; ++k, ++row) {
        const long tt = static_cast<long>(htonl(static_cast<uint32_t>(st.ms)));
        const double got = in->tt_to_secs(tt);
        if (st.want == TOSSED)
          EXPECT_EQ(got, TOSSED) << "row " << row;
        else
          EXPECT_NEAR(got - kDay, st.want, 1e-6) << "row " << row;
      }
    }
  }
}

TEST(TimeTagGuard, TagConversionBothWays) {
  for (long ms : {0L, 1L, 43200123L, 86399999L})
    EXPECT_EQ(RawDataInput::tt_to_msecs(RawDataInput::msecs_to_tt(ms)), ms);
  LiveInput in(kDay + 100);
  in.SetT0day(kDay + 86400 + 5000.5);
  EXPECT_EQ(in.GetT0day(), kDay + 86400);
}

}  // namespace
