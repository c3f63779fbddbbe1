// The regular grid against hand-made series (empty steps, values on a step's
// boundary, missing values, alignment, a span, lagged values), and the
// grid step's text.
#include <gtest/gtest.h>

#include <math.h>

#include <vector>

#include "RegularGrid.h"

namespace {

struct Row {
  double t, x, y;
};

struct Rows : TableSink {
  std::vector<Row> rows;
  bool finished = false;
  void row(const Record& r) override {
    EXPECT_EQ(r.group, 0);
    EXPECT_EQ(r.npresent, 2u);
    rows.push_back({r.t, r.values[0], r.values[1]});
  }
  void finish() override { finished = true; }
};

bool same(double a, double b) { return (std::isnan(a) && std::isnan(b)) || fabs(a - b) < 1e-9; }

TEST(RegularGrid, StepsOfTheSeries) {
  const double N = NAN;
  const struct Case {
    const char* what;
    long long stepMs;
    double from, to;  // the span, when from < to
    std::vector<Row> in, out;
    long late;
  } cases[] = {
      {"a step holds [t, t + step); an empty step is an empty row", 1000, 0, 0,
       {{100.0, 1, N}, {100.999, 3, 4}, {101.0, 10, N}, {103.5, 7, N}},
       {{100, 2, 4}, {101, 10, N}, {102, N, N}, {103, 7, N}}, 0},
      {"missing and near-missing values are no values", 1000, 0, 0,
       {{5.1, 1e37, 1}, {5.2, -5.98e36, 3}, {5.3, INFINITY, N}, {5.4, N, 5}},
       {{5, N, 3}}, 0},
      {"steps are aligned on multiples of their length", 250, 0, 0,
       {{0.3, 1, 1}, {0.76, 2, 2}}, {{0.25, 1, 1}, {0.5, N, N}, {0.75, 2, 2}}, 0},
      {"a span is covered whole, the end not included", 1000, 98.5, 102,
       {{100.2, 1, 2}}, {{98, N, N}, {99, N, N}, {100, 1, 2}, {101, N, N}}, 0},
      {"a value moved back by a lag joins its step while it is open", 100, 0, 0,
       {{10.0, 1, N}, {10.55, 2, N}, {10.05, 3, N}, {12.0, 4, N}, {10.3, 5, 6}},
       {{10.0, 2, N}, {10.1, N, N}, {10.2, N, N}, {10.3, N, N}, {10.4, N, N}, {10.5, 2, N},
        {10.6, N, N}, {10.7, N, N}, {10.8, N, N}, {10.9, N, N}, {11.0, N, N}, {11.1, N, N},
        {11.2, N, N}, {11.3, N, N}, {11.4, N, N}, {11.5, N, N}, {11.6, N, N}, {11.7, N, N},
        {11.8, N, N}, {11.9, N, N}, {12.0, 4, N}}, 2},
  };
  for (const Case& c : cases) {
    Rows out;
    heron::RegularGrid grid(c.stepMs, 2, 1.0, &out);
    if (c.from < c.to) grid.cover(c.from, c.to);
    const size_t both[2] = {0, 1};
    for (const Row& r : c.in) {
      const double v[2] = {r.x, r.y};
      grid.row(Record{r.t, 0, v, both, 2});
    }
    grid.finish();
    EXPECT_TRUE(out.finished) << c.what;
    EXPECT_EQ(grid.late(), c.late) << c.what;
    ASSERT_EQ(out.rows.size(), c.out.size()) << c.what;
    for (size_t i = 0; i < c.out.size(); ++i)
      EXPECT_TRUE(same(out.rows[i].t, c.out[i].t) && same(out.rows[i].x, c.out[i].x) && same(out.rows[i].y, c.out[i].y))
          << c.what << ": row " << i << " is " << out.rows[i].t << " " << out.rows[i].x << " " << out.rows[i].y;
  }
}

TEST(RegularGrid, StepText) {
  const struct {
    const char* text;
    long long ms;  // 0: refused
  } cases[] = {
      {"10", 100},  {"0.5", 2000},     {"1000", 1},  {"100ms", 100}, {"1s", 1000}, {".5s", 500},
      {"1min", 60000}, {"527040min", 31622400000LL},
      {"", 0},      {"3", 0},          {"0", 0},     {"2000", 0},    {"-1", 0},    {"1e3", 0},
      {" 10", 0},   {"10 ", 0},        {"10Hz", 0},  {"1h", 0},      {"1.2.3", 0}, {".", 0},
      {"ms", 0},    {"inf", 0},        {"nan", 0},   {"0x10", 0},    {"0.5ms", 0}, {"527041min", 0},
  };
  for (const auto& c : cases) {
    long long ms = 0;
    EXPECT_EQ(heron::parseGridStep(c.text, &ms), c.ms != 0) << '"' << c.text << '"';
    EXPECT_EQ(ms, c.ms) << '"' << c.text << '"';
  }
}

}  // namespace
