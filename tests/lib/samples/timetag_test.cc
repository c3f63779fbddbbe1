// The time-tag guard, in memory and branch by branch: each case starts a
// guard at a known time and feeds it a row of tags with the time each must
// get (or "tossed").
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <vector>

#include "samples/TimeTagGuard.h"
#include "time/UTime.h"

namespace {

const double kDay = UTime(0, 2026, 11, 21, 0, 0, 0.0f).val();  // a UTC midnight
const double TOSSED = TimeTagGuard::BIGBANG;
const long H = 3600000, M = 60000;

// A live input takes earlier tags believed at last as the next day; files
// believe them after 3 (10 for a named file with a start time).
enum Kind { LIVE, FILE3, FILE10 };

// A tag (milliseconds of the day), the time it must get (seconds after
// kDay, or TOSSED), and how many times in a row.
struct Step { long ms; double want; int times; };

const struct {
  const char* what;
  Kind kind;
  double start;  // seconds after kDay
  std::vector<Step> steps;
} kCases[] = {
    {"impossible tags are tossed and change nothing; forward and small backward steps are accepted", LIVE, 43200,
     {{86400001, TOSSED, 1}, {-1, TOSSED, 1}, {12 * H + 100, 43200.1, 1}, {12 * H + 50, 43200.05, 1},
      {12 * H - 5 * M, 42900, 1}, {13 * H, 46800, 1}}},
    {"a tag of exactly 24 h is midnight of the next day", LIVE, 86100, {{86400000, 86400, 1}, {1000, 86401, 1}}},
    {"midnight rollover", FILE3, 86399.9, {{86399950, 86399.95, 1}, {100, 86400.1, 1}}},
    {"40 min behind, live: four tossed, then taken as the next day", LIVE, 43200,
     {{12 * H - 40 * M, TOSSED, 4}, {12 * H - 40 * M, 86400 + 43200 - 2400, 1}}},
    {"40 min behind in a file: four tossed, then believed", FILE3, 43200,
     {{12 * H - 40 * M, TOSSED, 4}, {12 * H - 40 * M, 43200 - 2400, 1}}},
    {"40 min behind with limit 10: eleven tossed, then believed", FILE10, 43200,
     {{12 * H - 40 * M, TOSSED, 11}, {12 * H - 40 * M, 43200 - 2400, 1}}},
    {"tossed tags never move the last accepted one", FILE3, 43200,
     {{12 * H - 40 * M, TOSSED, 2}, {12 * H + 1000, 43201, 1}, {12 * H - 40 * M, TOSSED, 4},
      {12 * H - 39 * M, 43200 - 2340, 1}}},
    {"10 min behind: tossed three times, the fourth accepted", LIVE, 43200,
     {{12 * H - 10 * M, TOSSED, 3}, {12 * H - 10 * M, 43200 - 600, 1}}},
    {"3 h ahead: four tossed, the fifth believed", LIVE, 43200,
     {{15 * H, TOSSED, 4}, {15 * H, 54000, 1}, {15 * H + 1, 54000.001, 1}}},
    {"more than 23 h 50 min ahead belongs to the day before", FILE3, 300,
     {{86280000, 86280 - 86400, 1}, {86290000, 86290 - 86400, 1}}},
};

TEST(TimeTagGuard, EveryBranch) {
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    TimeTagGuard g(msecs, kDay + c.start);
    g.newFile(c.kind == FILE10 ? 10 : 3);
    int row = 0;
    for (const Step& st : c.steps) {
      for (int k = 0; k < st.times; ++k, ++row) {
        const long ms = g.msecs(static_cast<long>(htonl(static_cast<uint32_t>(st.ms))));
        double got;
        got = g.isUsual(ms, got) ? g.acceptUsual(ms, got) : g.guarded(ms, "test", c.kind == LIVE);
        EXPECT_NEAR(got == TOSSED ? TOSSED : got - kDay, st.want, 1e-6) << "row " << row;
      }
    }
  }
}

}  // namespace
