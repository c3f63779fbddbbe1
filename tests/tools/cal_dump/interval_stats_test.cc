// Interval statistics against a plain two-pass computation of the same
// series, with missing and absent values, and over a day of 20 Hz data.
#include <gtest/gtest.h>

#include <math.h>

#include <vector>

#include "IntervalStats.h"

namespace {

struct Records : TableSink {
  std::vector<double> times;
  std::vector<std::vector<double>> rows;
  size_t width;
  bool finished = false;
  explicit Records(size_t w) : width(w) {}
  void row(const Record& r) override {
    EXPECT_EQ(r.group, 0);
    EXPECT_EQ(r.npresent, width);
    times.push_back(r.t);
    rows.emplace_back(r.values, r.values + width);
  }
  void finish() override { finished = true; }
};

// Two-pass sample covariance of the pairs where both are good.
double covariance(const std::vector<double>& a, const std::vector<double>& b, double* n) {
  double sa = 0, sb = 0, c = 0;
  *n = 0;
  for (size_t i = 0; i < a.size(); ++i)
    if (isGood(a[i]) && isGood(b[i])) sa += a[i], sb += b[i], *n += 1;
  for (size_t i = 0; i < a.size(); ++i)
    if (isGood(a[i]) && isGood(b[i])) c += (a[i] - sa / *n) * (b[i] - sb / *n);
  return c / (*n - 1);
}

TEST(IntervalStats, MatchesTwoPassWithMissingValues) {
  // Two 10 s intervals at 20 Hz; x has gaps (NaN: absent, 1e37: missing), y = 0.5 x + noise.
  std::vector<double> x, y, t;
  for (int i = 0; i < 400; ++i) {
    t.push_back(1000.0 + i * 0.05);
    x.push_back(i % 7 == 3 ? NAN : i % 11 == 5 ? kMissing : 290.0 + sin(i * 0.3) + 0.01 * i);
    y.push_back(i % 13 == 0 ? kMissing : 0.5 * (290.0 + sin(i * 0.3)) + cos(i * 1.7));
  }
  Records out(3 * 2 + 1);
  IntervalStats stats(10.0, 2, {{0, 1}}, &out);
  for (size_t i = 0; i < t.size(); ++i) {
    const double v[2] = {x[i], y[i]};
    const size_t both[2] = {0, 1};
    stats.row(Record{t[i], 0, v, both, 2});
  }
  stats.finish();
  ASSERT_TRUE(out.finished);
  ASSERT_EQ(out.times, (std::vector<double>{1000.0, 1010.0}));
  for (size_t k = 0; k < 2; ++k) {
    const std::vector<double> xs(x.begin() + 200 * k, x.begin() + 200 * (k + 1));
    const std::vector<double> ys(y.begin() + 200 * k, y.begin() + 200 * (k + 1));
    double nx, ny, nxy, sum = 0;
    const double vx = covariance(xs, xs, &nx), vy = covariance(ys, ys, &ny);
    for (double v : xs) sum += isGood(v) ? v : 0;
    const std::vector<double>& r = out.rows[k];
    EXPECT_NEAR(r[0], sum / nx, 1e-9);
    EXPECT_NEAR(r[1], vx, 1e-9);
    EXPECT_EQ(r[2], nx);
    EXPECT_NEAR(r[4], vy, 1e-9);
    EXPECT_EQ(r[5], ny);
    // A record where y is missing pairs x with y's value of 50 ms before.
    std::vector<double> held = ys;
    for (size_t i = 1; i < held.size(); ++i)
      if (!isGood(held[i])) held[i] = held[i - 1];
    EXPECT_NEAR(r[6], covariance(xs, held, &nxy), 1e-9);
  }
}

TEST(IntervalStats, DayOfTwentyHertzKeepsPrecision) {
  // A large mean and a small spread: a one-pass sum of squares would lose
  // every digit of the variance here.
  Records out(3);
  IntervalStats stats(86400.0, 1, {}, &out);
  const long n = 86400L * 20;
  for (long i = 0; i < n; ++i) {
    const double v = 1e6 + ((i % 2) ? 1e-3 : -1e-3);
    const size_t first = 0;
    stats.row(Record{static_cast<double>(i) / 20.0, 0, &v, &first, 1});
  }
  stats.finish();
  ASSERT_EQ(out.rows.size(), 1u);
  EXPECT_NEAR(out.rows[0][0], 1e6, 1e-9);
  EXPECT_NEAR(out.rows[0][1], 1e-6 * n / (n - 1), 1e-12);
  EXPECT_EQ(out.rows[0][2], n);
}

}  // namespace
