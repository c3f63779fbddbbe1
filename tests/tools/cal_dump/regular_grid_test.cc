// The regular grid, behind the stage that puts lagged records back in
// time order, against hand-made series (empty steps, values on a step's
// boundary, missing values, alignment, a span, lagged and late values), and
// the grid step's text.
#include <gtest/gtest.h>

#include <math.h>
#include <stdio.h>

#include <array>
#include <string>
#include <vector>

#include "RegularGrid.h"
#include "TimeOrder.h"

namespace {

// The records as "t x y|...", then "end" once finished.
struct Text : TableSink {
  std::string text;
  void row(const Record& r) override {
    char line[80];
    snprintf(line, sizeof line, "%g %g %g|", r.t, r.values[0], r.values[1]);
    text += r.group == 0 && r.npresent == 2 ? line : "not a whole row|";
  }
  void finish() override { text += "end"; }
};

TEST(RegularGrid, StepsOfTheSeries) {
  const double N = NAN;
  const struct {
    const char* what;
    long long stepMs;
    double from, to;  // the span, when from < to
    std::vector<std::array<double, 3>> in;  // t x y
    const char* out;
  } cases[] = {
      {"a step holds [t, t + step); an empty step is an empty row", 1000, 0, 0,
       {{100.0, 1, N}, {100.999, 3, 4}, {101.0, 10, N}, {103.5, 7, N}},
       "100 2 4|101 10 nan|102 nan nan|103 7 nan|end, 0 late"},
      {"missing and near-missing values are no values", 1000, 0, 0,
       {{5.1, 1e37, 1}, {5.2, -5.98e36, 3}, {5.3, INFINITY, N}, {5.4, N, 5}}, "5 nan 3|end, 0 late"},
      {"steps are aligned on multiples of their length", 250, 0, 0, {{0.3, 1, 1}, {0.76, 2, 2}},
       "0.25 1 1|0.5 nan nan|0.75 2 2|end, 0 late"},
      {"a span is covered whole, its end not included", 1000, 98.5, 102, {{100.2, 1, 2}},
       "98 nan nan|99 nan nan|100 1 2|101 nan nan|end, 0 late"},
      {"a lagged record is put in place; one behind a record passed on is late (held 1 s)", 500, 0, 0,
       {{10.0, 1, N}, {10.6, 2, N}, {10.1, 3, N}, {12.0, 4, N}, {10.7, 5, 6}, {10.5, 7, 7}},
       "10 2 nan|10.5 3.5 6|11 nan nan|11.5 nan nan|12 4 nan|end, 2 late"},
  };
  for (const auto& c : cases) {
    Text out;
    heron::RegularGrid grid(c.stepMs, 2, &out);
    heron::TimeOrder order(1.0, 2, &grid);
    if (c.from < c.to) grid.cover(c.from, c.to);
    const size_t both[2] = {0, 1};
    for (const auto& r : c.in) order.row(Record{r[0], 0, &r[1], both, 2});
    order.finish();
    EXPECT_EQ(out.text + ", " + std::to_string(order.late()) + " late", c.out) << c.what;
  }
}

TEST(RegularGrid, StepText) {
  const struct {
    const char* text;
    long long ms;  // 0: refused
  } cases[] = {
      {"10", 100}, {"0.5", 2000}, {"1000", 1}, {"100ms", 100}, {"1s", 1000}, {".5s", 500}, {"1min", 60000},
      {"527040min", 31622400000LL}, {"", 0}, {"3", 0}, {"0", 0}, {"2000", 0}, {"-1", 0}, {"1e3", 0}, {" 10", 0},
      {"10 ", 0}, {"10Hz", 0}, {"1h", 0}, {"1.2.3", 0}, {".", 0}, {"ms", 0}, {"inf", 0}, {"nan", 0}, {"0x10", 0},
      {"0.5ms", 0}, {"527041min", 0},
  };
  for (const auto& c : cases) {
    long long ms = 0;
    EXPECT_EQ(heron::parseGridStep(c.text, &ms), c.ms != 0) << '"' << c.text << '"';
    EXPECT_EQ(ms, c.ms) << '"' << c.text << '"';
  }
}

}  // namespace
