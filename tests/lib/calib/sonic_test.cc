// The tilt matrix, the CSAT3 record conversion and its spike screening.
#include <math.h>

#include <random>

#include "calib/conversions.h"
#include "calib_test_util.h"

namespace {

constexpr double kDeg = M_PI / 180.0;

// A record of five host-order words: u, v, w, c counts and the diagnostic
// word from its flags, range codes and counter.
std::string rec(int u, int v, int w, int c, int flags = 0, int ru = 0, int rv = 0, int rw = 0, int counter = 0) {
  const short s[5] = {static_cast<short>(u), static_cast<short>(v), static_cast<short>(w), static_cast<short>(c),
                      static_cast<short>(flags << 12 | ru << 10 | rv << 8 | rw << 6 | counter)};
  return std::string(reinterpret_cast<const char*>(s), 10);
}

// Sets use 0 up with a calibration record, the predictor constants tau and
// 4, and the options; ScratchSite keeps the file.
InfoPtr csat3(const ScratchSite& site, const std::string& record, double tau = 1200, const char* mode = "despike",
              const char* proto = nullptr) {
  Params p{calFile(site, "csat3.cal", "2004 1 00:00 " + record + "\n"), tau, 4, mode};
  if (proto) p.push_back(proto);
  return init("sonic_csat3", p, 9);
}

std::vector<float> run(const std::string& r, double t) { return convert("sonic_csat3", r, 9, t); }

float sonicTemp(double c) { return static_cast<float>((c / 20.067) * (c / 20.067) - 273.15); }

}  // namespace

TEST(SonicCsat3, DecodingOffsetsTurnLeanAndCounter) {
  ScratchSite site;
  InfoPtr info = csat3(site, "0 0 0 0 0 0 0");
  EXPECT_STREQ(info->paramString, "\"csat3.cal\" 1e+03 4.00 despike");
  EXPECT_EQ(run(rec(1000, 1000, 1000, 0), k2004 - 1), std::vector<float>(9, kMissing));  // no record yet
  double t = k2004 + 10;
  // Range code 0 (0.002 m/s a count), where a zero count is missing.
  EXPECT_EQ(run(rec(1000, 0, -500, 0), t), (std::vector<float>{2, kMissing, -1, sonicTemp(340), 0, 2, 0, 0, 0}));
  EXPECT_EQ(run(rec(1000, 1000, 1000, 1500, 5, 1, 2, 3), t + 0.05),
            (std::vector<float>{1, 0.5, 0.25, sonicTemp(341.5), 0, 0, 0, 0, 5}));
  std::vector<float> o = run(rec(-32768, 0, 0, -32768, 0, 0, 1, 1), t + 0.1);  // a zero count is fine in range 1
  EXPECT_EQ((std::vector<float>{o[0], o[1], o[3], o[7]}), (std::vector<float>{kMissing, 0, kMissing, 2}));
  std::vector<float> diag;  // 62, 63, 0, 1 run on; 5 after 1 and 7 after 5 do not
  for (int counter : {62, 63, 0, 1, 5, 7, 8}) diag.push_back(run(rec(100, 100, 100, 0, 2, 0, 0, 0, counter), t += 0.05)[8]);
  EXPECT_EQ(diag, (std::vector<float>{2, 2, 2, 2, 18, 18, 2}));

  info = csat3(site, "0.5 -0.5 0.1 0 0 90 0");  // offsets, then turned by 90 degrees: u' = v, v' = -u
  o = run(rec(1000, 500, 300, 0), k2004);
  EXPECT_EQ((std::vector<float>{o[0], o[1], o[2]}), (std::vector<float>{1.5, -1.5, 0.5}));
  info = csat3(site, "0 0 0 5 30 0 0");  // lean 5 degrees towards azimuth 30
  EXPECT_NEAR(run(rec(1000, 500, 300, 0), k2004)[2],
              sin(5 * kDeg) * (cos(30 * kDeg) * 2.0 + sin(30 * kDeg)) + cos(5 * kDeg) * 0.6, 1e-5);
  o = run(rec(1000, 500, 0, 0), k2004 + 0.05);  // w missing: no levelled wind
  EXPECT_EQ((std::vector<float>{o[0], o[2]}), std::vector<float>(2, kMissing));
  info = csat3(site, "0 0 0 0 0 0 0", 1200, "despike", "prototype");  // u' = -v, v' = u
  o = run(rec(1000, 500, 300, 0), k2004);
  EXPECT_EQ((std::vector<float>{o[0], o[1]}), (std::vector<float>{-1, 2}));
}

TEST(SonicCsat3, RealignsRecordsSplitAcrossSamples) {
  std::string stream;
  for (int n = 0; n < 12; ++n) stream += rec(100 * n + 7, -50 * n - 3, 20 * n + 1, 10 * n, 0, 1, 1, 1, n);
  ScratchSite site;
  for (int k : {1, 3, 9}) {
    // Framed k bytes late: each sample is the tail of one record and the
    // head of the next; the first sample's head was never seen.
    InfoPtr info = csat3(site, "0 0 0 0 0 0 " + std::to_string(k));
    for (int n = 0; n + 1 < 12; ++n) {
      const std::vector<float> o = run(stream.substr(10 * n + k, 10), k2004 + 0.05 * n);
      if (n == 0) continue;
      EXPECT_EQ((std::vector<float>{o[0], o[1], o[2], o[8]}),
                (std::vector<float>{(100 * n + 7) * 0.001f, (-50 * n - 3) * 0.001f, (20 * n + 1) * 0.001f, 0}))
          << "k=" << k << " n=" << n;
      EXPECT_NEAR(o[3], sonicTemp(340.0 + 0.01 * n), 1e-4) << "k=" << k << " n=" << n;
    }
  }
}

// Half an hour of synthetic first-order autoregressive turbulence in u at
// 20 Hz with spikes of 4 to 8 standard deviations injected; then a change
// of level after a gap of five minutes, which starts the predictor again.
TEST(SonicCsat3, DespikesInjectedSpikesAndStartsAgainAfterAGap) {
  const int n = 36000;
  std::mt19937 rng(20040101);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  std::vector<double> u(n), spiked(n, 0);
  double x = 0;
  for (int i = 0; i < n; ++i) u[i] = 3.0 + 0.6 * (x = 0.95 * x + sqrt(1 - 0.95 * 0.95) * gauss(rng));
  int injected = 0;
  for (int i = 600; i < n; i += 200 + static_cast<int>(uniform(rng) * 100), ++injected)
    u[i] += (spiked[i] = uniform(rng) < 0.5 ? -1 : 1) * 0.6 * (4 + 4 * uniform(rng));
  ScratchSite site;
  for (const char* mode : {"despike", "flag"}) {
    InfoPtr info = csat3(site, "0 0 0 0 0 0 0", 1200, mode);
    int caught = 0, falsely = 0;
    for (int i = 0; i < n; ++i) {
      const int uc = static_cast<int>(lround(u[i] / 0.001));  // range 1: no zero-count gaps
      const std::vector<float> o = run(rec(uc, 1000, 1000, 0, 0, 1, 0, 0, (i + 1) % 64), k2004 + i * 0.05);
      (spiked[i] != 0 ? caught : falsely) += o[4] == 1.0f;
      // In despike mode a forecast within the turbulence replaces a spike; in
      // flag mode the measured value stays.
      if (spiked[i] != 0) {
        EXPECT_LT(mode[0] == 'd' ? fabs(o[0] - 3.0) / 0.6 : fabs(o[0] - uc * 0.001), mode[0] == 'd' ? 4 : 1e-4) << i;
      }
    }
    EXPECT_GE(caught, injected * 95 / 100);
    EXPECT_LE(falsely, n / 500);
    const double t = k2004 + n * 0.05;
    EXPECT_EQ(run(rec(12000, 1000, 1000, 0, 0, 1), t)[4], 1.0f);  // far off: a spike
    EXPECT_EQ(run(rec(12000, 1000, 1000, 0, 0, 1), t + 299)[4], 1.0f);
    const std::vector<float> o = run(rec(12000, 1000, 1000, 0, 0, 1), t + 300);
    EXPECT_FLOAT_EQ(o[0], 12.0f);
    EXPECT_EQ(o[4], 0.0f);
  }
}
