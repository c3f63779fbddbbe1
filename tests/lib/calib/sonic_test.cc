// The tilt matrix, the CSAT3 record conversion and the spike screening.
#include <math.h>

#include <random>
#include <string>
#include <vector>

#include "calib/adapt_forecast.h"
#include "calib_test_util.h"
#include "calib/conversions.h"
#include "calib/sonic_tilt.h"

namespace {

constexpr double kDeg = M_PI / 180.0;

struct Rec {
  unsigned char b[10];
};

Rec make(int u, int v, int w, int c, int diag) {
  Rec r;
  const short s[5] = {static_cast<short>(u), static_cast<short>(v), static_cast<short>(w),
                      static_cast<short>(c), static_cast<short>(diag)};
  memcpy(r.b, s, sizeof s);
  return r;
}

// Diagnostic word from flags, the three range codes and the counter.
int diag(int flags, int ru, int rv, int rw, int counter) {
  return (flags << 12) | (ru << 10) | (rv << 8) | (rw << 6) | counter;
}

// Sets use 0 of sonic_csat3 up with the calibration file at path, the
// predictor constants tau and 4, and the options (mode word, "proto").
InfoPtr csat3(const std::string& path, double tau = 1200, std::vector<const char*> options = {}) {
  Params p{path, tau, 4};
  for (const char* o : options) p.add(o);
  return init(sonic_csat3_init, p, 9);
}

// The nine outputs of use 0 for one record at time t.
std::vector<float> run(const Rec& r, double t) {
  std::vector<float> out(9);
  sonic_csat3(&t, record(r.b), out.data(), 0);
  return out;
}

const char kPlain[] = "2004 1 00:00 0 0 0 0 0 0 0\n";

float sonic_temp(double c) { return static_cast<float>((c / 20.067) * (c / 20.067) - 273.15); }

// Outputs against want, to float precision.
void expectOutputs(const std::vector<float>& got, const std::vector<float>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) EXPECT_FLOAT_EQ(got[i], want[i]) << "output " << i;
}

}  // namespace

TEST(SonicTilt, RotationThatLevelsTheInstrument) {
  for (double lean : {0.5, 5.0, 20.0, 45.0}) {
    for (double az : {0.0, 30.0, 135.0, -100.0}) {
      float m[9];
      EXPECT_EQ(sonic_tilt_matrix(lean * kDeg, az * kDeg, m), 0);
      auto row = [&m](int i, const double* v) { return m[3 * i] * v[0] + m[3 * i + 1] * v[1] + m[3 * i + 2] * v[2]; };
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
          const double mj[3] = {m[3 * j], m[3 * j + 1], m[3 * j + 2]};
          EXPECT_NEAR(row(i, mj), i == j ? 1.0 : 0.0, 1e-6) << lean << " " << az;
        }
      const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                         m[2] * (m[3] * m[7] - m[4] * m[6]);
      EXPECT_NEAR(det, 1.0, 1e-6);
      // The true vertical as the leaning instrument sees it.
      const double k[3] = {sin(lean * kDeg) * cos(az * kDeg), sin(lean * kDeg) * sin(az * kDeg), cos(lean * kDeg)};
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(row(i, k), i == 2 ? 1.0 : 0.0, 1e-6);
    }
  }
  float m[9];
  EXPECT_EQ(sonic_tilt_matrix(0.5e-5, 1.0, m), 1);
  EXPECT_NEAR(m[0], 1.0, 1e-6);
  EXPECT_NEAR(m[8], 1.0, 1e-6);
}

TEST(SonicTilt, FiveDegreeLeanOfAKnownWindRecovered) {
  // The instrument leans 5 degrees towards azimuth 30: its reading is the
  // wind turned by -5 degrees about the level axis n across the lean
  // (Rodrigues' formula).
  const double a = -5 * kDeg, b = 30 * kDeg, n[3] = {sin(b), -cos(b), 0}, wind[3] = {4.0, -1.5, 0.3};
  const double dot = n[0] * wind[0] + n[1] * wind[1];
  const double cross[3] = {n[1] * wind[2], -n[0] * wind[2], n[0] * wind[1] - n[1] * wind[0]};
  double reading[3], level[3];
  for (int i = 0; i < 3; ++i) reading[i] = wind[i] * cos(a) + cross[i] * sin(a) + n[i] * dot * (1 - cos(a));
  ASSERT_GT(fabs(reading[2] - wind[2]), 0.2);  // the lean matters
  float m[9];
  sonic_tilt_matrix(-a, b, m);
  for (int i = 0; i < 3; ++i) level[i] = m[3 * i] * reading[0] + m[3 * i + 1] * reading[1] + m[3 * i + 2] * reading[2];
  EXPECT_NEAR(level[2], wind[2], 1e-5);
  EXPECT_NEAR(hypot(level[0], level[1]), hypot(wind[0], wind[1]), 1e-5);
  // The levelled frame may turn a fraction of a degree about the vertical.
  EXPECT_NEAR(atan2(level[1], level[0]), atan2(wind[1], wind[0]), 0.25 * kDeg);
}

TEST(SonicCsat3, DecodesRangesMissingValuesAndTemperature) {
  ScratchDir dir;
  const std::string path = dir.write("plain.cal", kPlain);
  InfoPtr info = csat3(path);
  EXPECT_EQ(units(info.get()), (std::vector<std::string>{"m/s", "m/s", "m/s", "degC", "", "", "", "", ""}));
  EXPECT_EQ(info->paramString, "\"" + path + "\" 1e+03 4.00 despike");

  // Nothing is reported before the first calibration record.
  EXPECT_EQ(run(make(1000, 1000, 1000, 0, 0), k2004 - 1), std::vector<float>(9, kMissing));
  // Range code 0 (0.002 m/s a count), where a zero count is missing; the
  // missing v is indicated.
  const double t = k2004 + 10;
  expectOutputs(run(make(1000, 0, -500, 0, 0), t), {2, kMissing, -1, sonic_temp(340.0), 0, 2, 0, 0, 0});
  expectOutputs(run(make(1000, 1000, 1000, 1500, diag(5, 1, 2, 3, 0)), t + 0.05),
                {1, 0.5, 0.25, sonic_temp(341.5), 0, 0, 0, 0, 5});
  // A zero count is missing only in range 0; -32768 of c is missing.
  const std::vector<float> o = run(make(-32768, 0, 0, -32768, diag(0, 0, 1, 1, 0)), t + 0.1);
  EXPECT_EQ(o[0], kMissing);
  EXPECT_EQ(o[1], 0.0f);
  EXPECT_EQ(o[3], kMissing);
  EXPECT_EQ(o[7], 2.0f);
}

TEST(SonicCsat3, RecordCounterCheck) {
  ScratchDir dir;
  InfoPtr info = csat3(dir.write("plain.cal", kPlain));
  double t = k2004;
  std::vector<float> d;
  for (int counter : {62, 63, 0, 1, 5, 7, 8})
    d.push_back(run(make(100, 100, 100, 0, diag(2, 0, 0, 0, counter)), t += 0.05)[8]);
  EXPECT_EQ(d, (std::vector<float>{2, 2, 2, 2, 18, 18, 2}));
}

TEST(SonicCsat3, OffsetsOrientationLeanAndProto) {
  ScratchDir dir;
  // Offsets 0.5, -0.5, 0.1; orientation 90 degrees.
  InfoPtr info = csat3(dir.write("turned.cal", "2004 1 00:00 0.5 -0.5 0.1 0 0 90 0\n"));
  std::vector<float> o = run(make(1000, 500, 300, 0, 0), k2004);
  // Corrected (1.5, 1.5, 0.5), then turned by 90 degrees: u' = v, v' = -u.
  EXPECT_NEAR(o[0], 1.5f, 1e-6);
  EXPECT_NEAR(o[1], -1.5f, 1e-6);
  EXPECT_NEAR(o[2], 0.5f, 1e-6);

  // Lean 5 degrees towards azimuth 0: w' = sin(5) u + cos(5) w.
  info = csat3(dir.write("lean.cal", "2004 1 00:00 0 0 0 5 0 0 0\n"));
  o = run(make(1000, 500, 300, 0, 0), k2004);
  EXPECT_NEAR(o[2], sin(5 * kDeg) * 2.0 + cos(5 * kDeg) * 0.6, 1e-5);
  o = run(make(1000, 500, 0, 0, 0), k2004 + 0.05);  // w missing: no levelled wind
  EXPECT_EQ(o[0], kMissing);
  EXPECT_EQ(o[2], kMissing);

  info = csat3(dir.write("plain.cal", kPlain), 1200, {"despike", "prototype"});
  o = run(make(1000, 500, 300, 0, 0), k2004);
  EXPECT_FLOAT_EQ(o[0], -1.0f);
  EXPECT_FLOAT_EQ(o[1], 2.0f);
}

TEST(SonicCsat3, RealignsRecordsSplitAcrossSamples) {
  std::vector<unsigned char> stream;
  for (int n = 0; n < 12; ++n) {
    const Rec r = make(100 * n + 7, -50 * n - 3, 20 * n + 1, 10 * n, diag(0, 1, 1, 1, n));
    stream.insert(stream.end(), r.b, r.b + 10);
  }
  ScratchDir dir;
  for (int k : {1, 3, 9}) {
    InfoPtr info = csat3(dir.write("shift.cal", "2004 1 00:00 0 0 0 0 0 0 " + std::to_string(k) + "\n"));
    // The acquisition framed the stream k bytes late: sample n starts at
    // byte 10 n + k, so a record is the tail of one sample and the head of
    // the next.
    for (int n = 0; n + 1 < 12; ++n) {
      Rec sample;
      memcpy(sample.b, stream.data() + 10 * n + k, 10);
      const std::vector<float> o = run(sample, k2004 + 0.05 * n);
      if (n == 0) continue;  // its head lies in a sample never seen
      SCOPED_TRACE(testing::Message() << "k=" << k << " n=" << n);
      EXPECT_FLOAT_EQ(o[0], (100 * n + 7) * 0.001f);
      EXPECT_FLOAT_EQ(o[1], (-50 * n - 3) * 0.001f);
      EXPECT_FLOAT_EQ(o[2], (20 * n + 1) * 0.001f);
      EXPECT_NEAR(o[3], sonic_temp(340.0 + 0.01 * n), 1e-4);
      EXPECT_EQ(o[8], 0.0f);  // counters run on
    }
  }
}

// A synthetic turbulent series (first-order autoregressive, correlation
// 0.95 between samples at 20 Hz) with spikes injected into u, w and c.
TEST(SonicCsat3, DespikesInjectedSpikes) {
  const int n = 36000;  // half an hour
  std::mt19937 rng(20040101);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  const double r = 0.95, innov = sqrt(1 - r * r);
  const double mean[3] = {3.0, 0.0, 345.0};  // u (m/s), w (m/s), c (m/s)
  const double sd[3] = {0.6, 0.3, 0.2};
  std::vector<double> series[3];
  for (int v = 0; v < 3; ++v) {
    double x = 0;
    for (int i = 0; i < n; ++i) {
      x = r * x + innov * gauss(rng);
      series[v].push_back(mean[v] + sd[v] * x);
    }
  }
  std::vector<char> spiked[3];
  int injected = 0;
  for (int v = 0; v < 3; ++v) {
    spiked[v].assign(n, 0);
    for (int i = 600; i < n; i += 200 + static_cast<int>(uniform(rng) * 100)) {
      series[v][i] += (uniform(rng) < 0.5 ? -1 : 1) * sd[v] * (4 + 4 * uniform(rng));
      spiked[v][i] = 1;
      ++injected;
    }
  }

  ScratchDir dir;
  for (bool despike : {true, false}) {
    InfoPtr info = csat3(dir.write("plain.cal", kPlain), 1200, {despike ? "despike" : "flag"});
    int caught = 0, falsely = 0;
    double worst = 0;
    for (int i = 0; i < n; ++i) {
      // u in range 0, w in range 2 (no zero-count gaps), c in mm/s.
      const int uc = static_cast<int>(lround(series[0][i] / 0.002));
      const int wc = static_cast<int>(lround(series[1][i] / 0.0005));
      const int cc = static_cast<int>(lround((series[2][i] - 340.0) / 0.001));
      const std::vector<float> o = run(make(uc, 1000, wc, cc, diag(0, 0, 0, 2, (i + 1) % 64)), k2004 + i * 0.05);
      const int idx[3] = {4, 6, 7};
      for (int v = 0; v < 3; ++v) (spiked[v][i] ? caught : falsely) += o[idx[v]] == 1.0f;
      // In despike mode a spike is replaced by a forecast within the
      // turbulence; in flag mode the measured value stays.
      if (spiked[0][i] && despike) worst = fmax(worst, fabs(o[0] - 3.0) / 0.6);
      if (spiked[0][i] && !despike) {
        EXPECT_NEAR(o[0], uc * 0.002, 1e-4) << i;
      }
    }
    printf("[ spikes   ] %s: %d injected, %d caught, %d good values flagged of %d\n",
           despike ? "despike" : "flag", injected, caught, falsely, 3 * n - injected);
    RecordProperty(despike ? "despike_caught" : "flag_caught", caught);
    RecordProperty(despike ? "despike_false" : "flag_false", falsely);
    EXPECT_GE(caught, injected * 95 / 100);
    EXPECT_LE(falsely, 3 * n / 1000);
    if (despike) {
      EXPECT_LT(worst, 4.0);  // replacements lie within the turbulence
    }
  }
}

TEST(AdaptForecast, SpikesGapsAndLevelChanges) {
  adapt_state st;
  adapt_forecast_init(&st, 100, 4, 0.01, 1);
  std::mt19937 rng(7);
  std::normal_distribution<double> gauss(0.0, 1.0);
  for (int i = 0; i < 200; ++i) adapt_forecast(static_cast<float>(gauss(rng)), i, &st);
  const float y = adapt_forecast(50.0f, 200, &st);
  EXPECT_EQ(st.spike, ADAPT_SPIKE);
  EXPECT_EQ(y, static_cast<float>(st.forecast));  // the forecast stands in
  EXPECT_LT(fabs(y), 2.0f);
  EXPECT_EQ(adapt_forecast(1e37f, 201, &st), 1e37f);
  EXPECT_EQ(st.spike, ADAPT_MISSING);
  EXPECT_EQ(st.last_good_time, 199.0);
  // A lasting change of level is accepted after a run of spikes.
  for (int i = 0; i < ADAPT_MAX_RUN; ++i) adapt_forecast(50.0f, 202 + i, &st);
  EXPECT_EQ(adapt_forecast(50.0f, 300, &st), 50.0f);
  EXPECT_EQ(st.spike, ADAPT_GOOD);
}

TEST(SonicCsat3, PredictorStartsAgainAfterFiveMinutesWithoutGoodValues) {
  ScratchDir dir;
  InfoPtr info = csat3(dir.write("plain.cal", kPlain), 100);
  std::mt19937 rng(3);
  std::normal_distribution<double> gauss(0.0, 1.0);
  double t = k2004;
  for (int i = 0; i < 500; ++i, t += 0.05) run(make(1500 + static_cast<int>(50 * gauss(rng)), 1000, 1000, 0, 0), t);
  EXPECT_EQ(run(make(6000, 1000, 1000, 0, 0), t)[4], 1.0f);  // far off: a spike
  EXPECT_EQ(run(make(6000, 1000, 1000, 0, 0), t + 299)[4], 1.0f);
  // After 300 s the old statistics no longer speak for the new value.
  const std::vector<float> o = run(make(6000, 1000, 1000, 0, 0), t + 300);
  EXPECT_EQ(o[4], 0.0f);
  EXPECT_FLOAT_EQ(o[0], 12.0f);
}

TEST(SonicCsat3DeathTest, InitFailures) {
  ScratchDir dir;
  const std::string bad = dir.write("short.cal", "2004 1 00:00 0 0 0 0 0 0\n");
  const std::string shift = dir.write("shift.cal", "2004 1 00:00 0 0 0 0 0 0 12\n");
  const struct {
    Params params;
    const char* message;
  } cases[] = {
      {{bad, 1200, 4},
       "Error: sonic_csat3 calibration function error\n"
       "Calibration file .*short.cal has 6 values per record, should have 7\n"},
      {{shift, 1200, 4}, "Record shift 12 in .*shift.cal"},
      {{shift}, "Invalid number of parameters \\(1\\), should be 3 to 5\n"},
  };
  for (const auto& c : cases) EXPECT_EXIT(init(sonic_csat3_init, c.params, 9), testing::ExitedWithCode(1), c.message);
}
