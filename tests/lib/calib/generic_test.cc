// The generic conversions and record decoders.
#include <math.h>

#include <string>

#include "calib_test_util.h"
#include "conversions.h"

namespace {

constexpr double k2004 = 1072915200.0;  // 2004-01-01 00:00:00 UTC

// Writes a float big-endian, as the instruments send it.
void put_float_be(unsigned char* p, float v) {
  unsigned char b[4];
  memcpy(b, &v, 4);
  for (int i = 0; i < 4; ++i) p[i] = b[3 - i];
}
void put_short_be(unsigned char* p, int v) {
  p[0] = static_cast<unsigned char>((v >> 8) & 0xff);
  p[1] = static_cast<unsigned char>(v & 0xff);
}
void put_short_host(unsigned char* p, short v) { memcpy(p, &v, 2); }

}  // namespace

TEST(Generic, LinearFamily) {
  Params p;
  p.num(2).num(1).text("W/m2");
  InfoPtr info = init(linear_init, p);
  EXPECT_STREQ(info->units[0], "W/m2");
  EXPECT_STREQ(info->paramString, "slope=2.00, intcpt=1.00");
  EXPECT_FLOAT_EQ(convert(linear, 1.5f), 4.0f);
  InfoPtr described(linear_init(0, 0, p.get(), p.size(), 1));  // no use: only the description
  EXPECT_STREQ(described->units[0], "W/m2");

  Params two;
  two.num(-0.5).num(3);
  InfoPtr noUnit = init(linear_init, two, 1, 1, 2);  // a second use keeps its own coefficients
  EXPECT_STREQ(noUnit->units[0], "");
  EXPECT_FLOAT_EQ(convert(linear, 2.0f, 0, 1), 2.0f);
  EXPECT_FLOAT_EQ(convert(linear, 1.5f, 0, 0), 4.0f);

  Params pl;
  pl.num(100).num(500).text("mb").num(850);
  InfoPtr pinfo = init(plinear_init, pl);
  EXPECT_FLOAT_EQ(sharedValues[SHARED_PRESSURE], 850.0f);  // preset at init
  EXPECT_FLOAT_EQ(convert(plinear, 4.0f), 900.0f);
  EXPECT_FLOAT_EQ(sharedValues[SHARED_PRESSURE], 900.0f);

  Params ta;
  ta.num(10).num(-20);
  InfoPtr tinfo = init(t_AIR_init, ta, 1, 1, 2);
  EXPECT_STREQ(tinfo->units[0], "degC");
  EXPECT_FLOAT_EQ(convert(t_AIR, 3.5f, 0, 1), 15.0f);
  EXPECT_FLOAT_EQ(temp_AIR[1], 15.0f);

  Params tv;
  tv.num(-40).num(20).num(0.5);
  InfoPtr vinfo = init(t_vaisala_init, tv);
  EXPECT_STREQ(vinfo->paramString, "A0=-40.00, A1=20.00, A2=0.50");
  EXPECT_EQ(temp_vaisala[0], 1e37);
  EXPECT_FLOAT_EQ(convert(t_vaisala, 2.0f), -40.0f + 40.0f + 2.0f);
  EXPECT_DOUBLE_EQ(temp_vaisala[0], 2.0);
}

TEST(Generic, PolyPowerThermistor) {
  Params p;
  p.text("degC").num(1).num(-2).num(0.5);  // order 2
  InfoPtr info = init(poly_init, p);
  EXPECT_STREQ(info->units[0], "degC");
  EXPECT_STREQ(info->paramString, "A0=1,A1=-2,A2=0.5,");
  EXPECT_FLOAT_EQ(convert(poly, 3.0f), 1.0f - 6.0f + 4.5f);

  Params w;
  w.num(1).num(2).num(10).num(0.5).text("mm/h");
  InfoPtr winfo = init(power_init, w);
  EXPECT_STREQ(winfo->paramString, "V0=1, A=2, B=10, C=0.5");
  EXPECT_FLOAT_EQ(convert(power, 0.5f), 0.0f);
  EXPECT_FLOAT_EQ(convert(power, 1.0f), 2.0f * sqrtf(10.0f));  // at V0 the formula applies
  EXPECT_FLOAT_EQ(convert(power, 4.0f), 200.0f);

  // A divider thermistor with the usual Steinhart-Hart coefficients.
  const double a0 = 1.129241e-3, a1 = 2.341077e-4, a2 = 0.0, a3 = 8.775468e-8;
  Params t;
  t.num(a0).num(a1).num(a2).num(a3).num(1000);
  InfoPtr tinfo = init(thermistor_init, t);
  EXPECT_STREQ(tinfo->units[0], "degK");
  EXPECT_STREQ(tinfo->paramString, "A0=1.1292e-03, A1=2.3411e-04, A2=0.0000e+00, A3=8.7755e-08, K=1000.0");
  const double l = log(1000.0 / (1000.0 * 0.25) - 1.0);
  EXPECT_NEAR(convert(thermistor, 0.25f), 1.0 / (a0 + a1 * l + a3 * l * l * l), 1e-3);
  EXPECT_EQ(convert(thermistor, 1.0f), kMissing);  // y = 0
  EXPECT_EQ(convert(thermistor, 2.0f), kMissing);  // y < 0
  EXPECT_EQ(convert(thermistor, 0.0f), kMissing);  // dead input
}

TEST(Generic, StatusAndMode) {
  Params none;
  InfoPtr s = init(status_init, none);
  EXPECT_STREQ(s->paramString, "threshold=2.50V");
  EXPECT_EQ(convert(status, 2.49f), 0.0f);
  EXPECT_EQ(convert(status, 2.5f), 1.0f);

  Params m;
  m.num(1).num(0).num(1).num(0).num(2).num(1.5).num(2.5).num(30);
  InfoPtr minfo = init(mode_init, m);
  EXPECT_STREQ(minfo->paramString, " 1=( 0.0, 1.0)V (  0.00s)   2=( 1.5, 2.5)V ( 30.00s)  ");
  EXPECT_EQ(convert(mode, 0.5f, 100), 1.0f);
  EXPECT_EQ(convert(mode, 1.2f, 101), kMissing);  // in no range
  EXPECT_EQ(convert(mode, 2.0f, 102), kMissing);  // mode 2 is still settling
  EXPECT_EQ(convert(mode, 2.0f, 131.9), kMissing);
  EXPECT_EQ(convert(mode, 2.5f, 132), 2.0f);
  EXPECT_EQ(convert(mode, 1.0f, 133), 1.0f);  // the first group that holds x wins
}

TEST(Generic, RecordDecoders) {
  unsigned char rec[32] = {};
  put_short_host(rec, 1013);
  put_short_host(rec + 2, 25);
  Params none;
  InfoPtr g = init(baro_GENERIC_init, none);
  EXPECT_STREQ(g->units[0], "mb");
  float out[4] = {};
  double t = 0;
  baro_GENERIC(&t, record(rec), out, 0);
  EXPECT_FLOAT_EQ(out[0], 1013.25f);
  EXPECT_FLOAT_EQ(sharedValues[SHARED_PRESSURE], 1013.25f);

  put_float_be(rec, 101.5f);
  InfoPtr pa = init(baro_PARA_init, none);
  baro_PARA(&t, record(rec), out, 0);
  EXPECT_FLOAT_EQ(out[0], 1015.0f);
  EXPECT_FLOAT_EQ(sharedValues[SHARED_PRESSURE], 1015.0f);

  put_float_be(rec, 21.5f);
  put_float_be(rec + 4, 998.25f);
  InfoPtr v = init(baro_vais_init, none, 2);
  EXPECT_STREQ(v->units[0], "degC");
  EXPECT_STREQ(v->units[1], "mb");
  baro_vais(&t, record(rec), out, 0);
  EXPECT_FLOAT_EQ(out[0], 21.5f);
  EXPECT_FLOAT_EQ(out[1], 998.25f);

  put_float_be(rec + 20, 7.5f);
  InfoPtr d = init(dual_uv_init, none);
  EXPECT_STREQ(d->units[0], "gr/kg");
  dual_uv(&t, record(rec), out, 0);
  EXPECT_FLOAT_EQ(out[0], 7.5f);

  // Floats 0, 1 and 5: outputs float1 - float0 and float0 - float5.
  put_float_be(rec, 10.0f);
  put_float_be(rec + 4, 12.5f);
  Params pairs;
  pairs.num(1).num(0).num(0).num(5);
  InfoPtr df = init(diff_float_init, pairs, 2);
  EXPECT_EQ(df->iout, 2);
  diff_float(&t, record(rec), out, 0);
  EXPECT_FLOAT_EQ(out[0], 2.5f);
  EXPECT_FLOAT_EQ(out[1], 10.0f - 7.5f);

  // From the east (90 degrees) at 5 m/s: blowing towards -x.
  put_float_be(rec, 5.0f);
  put_float_be(rec + 4, 90.0f);
  InfoPtr r = init(wind_rmy_init, none, 4);
  EXPECT_STREQ(r->units[3], "deg");
  wind_rmy(&t, record(rec), out, 0);
  EXPECT_FLOAT_EQ(out[0], -5.0f);
  EXPECT_NEAR(out[1], 0.0f, 1e-6);
  EXPECT_FLOAT_EQ(out[2], 5.0f);
  EXPECT_FLOAT_EQ(out[3], 90.0f);
}

TEST(Generic, WindGillWithDirectionOffsets) {
  ScratchDir dir;
  std::string cal = dir.write("gill.cal",
                              "2004 1 00:00 0\n"
                              "2004 1 12:00 30\n");
  Params p;
  p.text(cal).num(1);
  InfoPtr info = init(wind_gill_init, p, 4);
  EXPECT_STREQ(info->units[2], "deg");
  unsigned char rec[8] = {};
  put_short_be(rec, 500);      // 5 m/s
  put_short_be(rec + 4, 180);  // from the south
  float out[4] = {};
  double t = k2004 - 1;  // before any calibration
  wind_gill(&t, record(rec), out, 0);
  EXPECT_EQ(out[0], kMissing);

  t = k2004 + 60;
  wind_gill(&t, record(rec), out, 0);
  EXPECT_NEAR(out[0], 0.0f, 1e-5);  // angle 90 degrees
  EXPECT_FLOAT_EQ(out[1], 5.0f);
  EXPECT_FLOAT_EQ(out[2], 180.0f);
  EXPECT_FLOAT_EQ(out[3], 5.0f);

  t = k2004 + 13 * 3600;  // offset 30: angle 60 degrees
  wind_gill(&t, record(rec), out, 0);
  EXPECT_NEAR(out[0], 5.0 * cos(M_PI / 3), 1e-5);
  EXPECT_NEAR(out[1], 5.0 * sin(M_PI / 3), 1e-5);

  rec[6] = 1;  // sensor fault
  wind_gill(&t, record(rec), out, 0);
  for (float v : out) EXPECT_EQ(v, kMissing);
  rec[6] = 0;
  put_short_be(rec + 4, -10000);
  wind_gill(&t, record(rec), out, 0);
  EXPECT_EQ(out[1], kMissing);
}

TEST(Generic, TimeDependentLinearFromLoadedFiles) {
  ScratchDir dir;
  std::string cal = dir.write("tdl.cal",
                              "2004 1 00:00 2 1\n"
                              "2004 2 00:00 4 -1\n");
  Params p;
  p.text(cal).text("mV");
  InfoPtr info = init(td_linear_init, p);
  EXPECT_STREQ(info->units[0], "mV");
  EXPECT_EQ(convert(td_linear, 1.0f, k2004 - 10), kMissing);
  EXPECT_FLOAT_EQ(convert(td_linear, 1.0f, k2004), 3.0f);
  EXPECT_FLOAT_EQ(convert(td_linear, 1.0f, k2004 + 86400), 3.0f);

  std::string dtcal = dir.write("tdldt.cal", "2004 1 00:00 2 1 -0.25\n");
  Params pd;
  pd.text(dtcal);
  InfoPtr dinfo = init(td_linear_dt_init, pd);
  double t = k2004 + 5;
  float out = 0;
  td_linear_dt(&t, volts(2.0f), &out, 0);
  EXPECT_FLOAT_EQ(out, 5.0f);
  EXPECT_DOUBLE_EQ(t, k2004 + 4.75);  // the sample's time is corrected

  std::string fis = dir.write("fis.cal",
                              "2004 1 00:00 0.5 10 2.5 50\n"
                              "2004 2 00:00 1 1 1 2\n");  // unusable: both points at 1 V
  Params pf;
  pf.text(fis).text("ppm");
  InfoPtr finfo = init(fis_linear_init, pf);
  EXPECT_FLOAT_EQ(convert(fis_linear, 1.5f, k2004 + 1), 30.0f);
  EXPECT_FLOAT_EQ(convert(fis_linear, 0.0f, k2004 + 1), 0.0f);
  EXPECT_EQ(convert(fis_linear, 1.5f, k2004 + 86401), kMissing);
}

TEST(GenericDeathTest, InitFailures) {
  Params seven;
  seven.text("V");
  for (int i = 0; i < 7; ++i) seven.num(1);
  EXPECT_EXIT(init(poly_init, seven), testing::ExitedWithCode(1),
              "Error: poly calibration function error\nAssertion order\\[ichan\\] < 6 failed");

  Params odd;
  odd.num(1).num(2).num(3);
  EXPECT_EXIT(init(diff_float_init, odd), testing::ExitedWithCode(1),
              "Wrong number of parameters for diff cal function");

  Params five;
  for (int i = 0; i < 5; ++i) five.num(1);
  EXPECT_EXIT(init(mode_init, five), testing::ExitedWithCode(1),
              "Illegal number of parameters\\(5\\) to mode, should be multiple of 4\n");

  Params one;
  one.num(1);
  EXPECT_EXIT(init(thermistor_init, one), testing::ExitedWithCode(1),
              "Error: thermistor calibration function error\nInvalid number of parameters, should be 5\n");

  Params missing;
  missing.text("/nonexistent/offsets.cal");
  EXPECT_EXIT(init(td_linear_init, missing), testing::ExitedWithCode(1),
              "/nonexistent/offsets.cal: No such file or directory\n(.|\n)*Error: td_linear calibration function error\n");
}
