// The generic conversions and record decoders.
#include <math.h>

#include <string>

#include "calib_test_util.h"
#include "calib/conversions.h"

namespace {

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

// Runs a record conversion on rec at time t; returns its outputs.
std::vector<float> decode(calib_func_t f, const unsigned char* rec, int nout, double t = 0) {
  std::vector<float> out(static_cast<size_t>(nout), -99.0f);
  f(&t, record(rec), out.data(), 0);
  return out;
}

}  // namespace

TEST(Generic, LinearFamily) {
  const Params p{2, 1, "W/m2"};
  InfoPtr info = init(linear_init, p);
  EXPECT_STREQ(info->units[0], "W/m2");
  EXPECT_STREQ(info->paramString, "slope=2.00, intcpt=1.00");
  InfoPtr described(linear_init(0, 0, p.get(), p.size(), 1));  // no use: only the description
  EXPECT_STREQ(described->units[0], "W/m2");
  InfoPtr noUnit = init(linear_init, Params{-0.5, 3}, 1, 1, 2);  // a second use keeps its own coefficients
  EXPECT_STREQ(noUnit->units[0], "");
  EXPECT_FLOAT_EQ(convert(linear, 2.0f, 0, 1), 2.0f);
  EXPECT_FLOAT_EQ(convert(linear, 1.5f, 0, 0), 4.0f);

  InfoPtr pinfo = init(plinear_init, Params{100, 500, "mb", 850});
  EXPECT_FLOAT_EQ(sharedValues[SHARED_PRESSURE], 850.0f);  // preset at init
  EXPECT_FLOAT_EQ(convert(plinear, 4.0f), 900.0f);
  EXPECT_FLOAT_EQ(sharedValues[SHARED_PRESSURE], 900.0f);

  InfoPtr tinfo = init(t_AIR_init, Params{10, -20}, 1, 1, 2);
  EXPECT_STREQ(tinfo->units[0], "degC");
  EXPECT_FLOAT_EQ(convert(t_AIR, 3.5f, 0, 1), 15.0f);
  EXPECT_FLOAT_EQ(temp_AIR[1], 15.0f);

  InfoPtr vinfo = init(t_vaisala_init, Params{-40, 20, 0.5});
  EXPECT_STREQ(vinfo->paramString, "A0=-40.00, A1=20.00, A2=0.50");
  EXPECT_EQ(temp_vaisala[0], 1e37);
  EXPECT_FLOAT_EQ(convert(t_vaisala, 2.0f), -40.0f + 40.0f + 2.0f);
  EXPECT_DOUBLE_EQ(temp_vaisala[0], 2.0);
}

TEST(Generic, PolyPowerThermistor) {
  InfoPtr info = init(poly_init, Params{"degC", 1, -2, 0.5});  // order 2
  EXPECT_STREQ(info->units[0], "degC");
  EXPECT_STREQ(info->paramString, "A0=1,A1=-2,A2=0.5,");
  EXPECT_FLOAT_EQ(convert(poly, 3.0f), 1.0f - 6.0f + 4.5f);

  InfoPtr winfo = init(power_init, Params{1, 2, 10, 0.5, "mm/h"});
  EXPECT_STREQ(winfo->paramString, "V0=1, A=2, B=10, C=0.5");
  EXPECT_FLOAT_EQ(convert(power, 0.5f), 0.0f);
  EXPECT_FLOAT_EQ(convert(power, 1.0f), 2.0f * sqrtf(10.0f));  // at V0 the formula applies
  EXPECT_FLOAT_EQ(convert(power, 4.0f), 200.0f);

  // A divider thermistor with the usual Steinhart-Hart coefficients.
  const double a0 = 1.129241e-3, a1 = 2.341077e-4, a3 = 8.775468e-8;
  InfoPtr tinfo = init(thermistor_init, Params{a0, a1, 0, a3, 1000});
  EXPECT_STREQ(tinfo->units[0], "degK");
  EXPECT_STREQ(tinfo->paramString, "A0=1.1292e-03, A1=2.3411e-04, A2=0.0000e+00, A3=8.7755e-08, K=1000.0");
  const double l = log(1000.0 / (1000.0 * 0.25) - 1.0);
  EXPECT_NEAR(convert(thermistor, 0.25f), 1.0 / (a0 + a1 * l + a3 * l * l * l), 1e-3);
  for (float dead : {1.0f, 2.0f, 0.0f}) EXPECT_EQ(convert(thermistor, dead), kMissing) << dead;  // y <= 0, no input
}

TEST(Generic, StatusAndMode) {
  InfoPtr s = init(status_init, Params{});
  EXPECT_STREQ(s->paramString, "threshold=2.50V");
  EXPECT_EQ(convert(status, 2.49f), 0.0f);
  EXPECT_EQ(convert(status, 2.5f), 1.0f);

  InfoPtr minfo = init(mode_init, Params{1, 0, 1, 0, 2, 1.5, 2.5, 30});
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
  const short pressure[2] = {1013, 25};  // host order
  memcpy(rec, pressure, sizeof pressure);
  InfoPtr g = init(baro_GENERIC_init, Params{});
  EXPECT_STREQ(g->units[0], "mb");
  EXPECT_EQ(decode(baro_GENERIC, rec, 1), std::vector<float>{1013.25f});
  EXPECT_EQ(sharedValues[SHARED_PRESSURE], 1013.25f);

  put_float_be(rec, 101.5f);
  InfoPtr pa = init(baro_PARA_init, Params{});
  EXPECT_EQ(decode(baro_PARA, rec, 1), std::vector<float>{1015.0f});
  EXPECT_EQ(sharedValues[SHARED_PRESSURE], 1015.0f);

  put_float_be(rec, 21.5f);
  put_float_be(rec + 4, 998.25f);
  InfoPtr v = init(baro_vais_init, Params{}, 2);
  EXPECT_EQ(units(v.get()), (std::vector<std::string>{"degC", "mb"}));
  EXPECT_EQ(decode(baro_vais, rec, 2), (std::vector<float>{21.5f, 998.25f}));

  put_float_be(rec + 20, 7.5f);
  InfoPtr d = init(dual_uv_init, Params{});
  EXPECT_STREQ(d->units[0], "gr/kg");
  EXPECT_EQ(decode(dual_uv, rec, 1), std::vector<float>{7.5f});

  // Floats 0, 1 and 5: outputs float1 - float0 and float0 - float5.
  put_float_be(rec, 10.0f);
  put_float_be(rec + 4, 12.5f);
  InfoPtr df = init(diff_float_init, Params{1, 0, 0, 5}, 2);
  EXPECT_EQ(df->iout, 2);
  EXPECT_EQ(decode(diff_float, rec, 2), (std::vector<float>{2.5f, 10.0f - 7.5f}));

  // From the east (90 degrees) at 5 m/s: blowing towards -x.
  put_float_be(rec, 5.0f);
  put_float_be(rec + 4, 90.0f);
  InfoPtr r = init(wind_rmy_init, Params{}, 4);
  EXPECT_EQ(units(r.get()), (std::vector<std::string>{"m/s", "m/s", "m/s", "deg"}));
  const std::vector<float> o = decode(wind_rmy, rec, 4);
  EXPECT_FLOAT_EQ(o[0], -5.0f);
  EXPECT_NEAR(o[1], 0.0f, 1e-6);
  EXPECT_EQ(o[2], 5.0f);
  EXPECT_EQ(o[3], 90.0f);
}

TEST(Generic, WindGillWithDirectionOffsets) {
  ScratchDir dir;
  InfoPtr info = init(wind_gill_init, Params{dir.write("gill.cal", "2004 1 00:00 0\n2004 1 12:00 30\n"), 1}, 4);
  EXPECT_EQ(units(info.get()), (std::vector<std::string>{"m/s", "m/s", "deg", "m/s"}));
  unsigned char rec[8] = {};
  put_short_be(rec, 500);      // 5 m/s
  put_short_be(rec + 4, 180);  // from the south
  EXPECT_EQ(decode(wind_gill, rec, 4, k2004 - 1)[0], kMissing);  // before any calibration

  std::vector<float> o = decode(wind_gill, rec, 4, k2004 + 60);
  EXPECT_NEAR(o[0], 0.0f, 1e-5);  // angle 90 degrees
  EXPECT_FLOAT_EQ(o[1], 5.0f);
  EXPECT_EQ(o[2], 180.0f);
  EXPECT_EQ(o[3], 5.0f);

  o = decode(wind_gill, rec, 4, k2004 + 13 * 3600);  // offset 30: angle 60 degrees
  EXPECT_NEAR(o[0], 5.0 * cos(M_PI / 3), 1e-5);
  EXPECT_NEAR(o[1], 5.0 * sin(M_PI / 3), 1e-5);

  rec[6] = 1;  // sensor fault
  EXPECT_EQ(decode(wind_gill, rec, 4, k2004 + 13 * 3600), std::vector<float>(4, kMissing));
  rec[6] = 0;
  put_short_be(rec + 4, -10000);
  EXPECT_EQ(decode(wind_gill, rec, 4, k2004 + 13 * 3600)[1], kMissing);
}

TEST(Generic, TimeDependentLinearFromLoadedFiles) {
  ScratchDir dir;
  InfoPtr info = init(td_linear_init, Params{dir.write("tdl.cal", "2004 1 00:00 2 1\n2004 2 00:00 4 -1\n"), "mV"});
  EXPECT_STREQ(info->units[0], "mV");
  EXPECT_EQ(convert(td_linear, 1.0f, k2004 - 10), kMissing);
  EXPECT_FLOAT_EQ(convert(td_linear, 1.0f, k2004), 3.0f);
  EXPECT_FLOAT_EQ(convert(td_linear, 1.0f, k2004 + 86400), 3.0f);

  InfoPtr dinfo = init(td_linear_dt_init, Params{dir.write("tdldt.cal", "2004 1 00:00 2 1 -0.25\n")});
  double t = k2004 + 5;
  float out = 0;
  td_linear_dt(&t, calib_input{2.0f}, &out, 0);
  EXPECT_FLOAT_EQ(out, 5.0f);
  EXPECT_DOUBLE_EQ(t, k2004 + 4.75);  // the sample's time is corrected

  const std::string fis = dir.write("fis.cal",
                                    "2004 1 00:00 0.5 10 2.5 50\n"
                                    "2004 2 00:00 1 1 1 2\n");  // unusable: both points at 1 V
  InfoPtr finfo = init(fis_linear_init, Params{fis, "ppm"});
  EXPECT_FLOAT_EQ(convert(fis_linear, 1.5f, k2004 + 1), 30.0f);
  EXPECT_FLOAT_EQ(convert(fis_linear, 0.0f, k2004 + 1), 0.0f);
  EXPECT_EQ(convert(fis_linear, 1.5f, k2004 + 86401), kMissing);
}

TEST(GenericDeathTest, InitFailures) {
  const struct {
    calib_init_t init;
    Params params;
    const char* message;
  } cases[] = {
      {poly_init, {"V", 1, 1, 1, 1, 1, 1, 1}, "Error: poly calibration function error\nAssertion order\\[ichan\\] < 6 failed"},
      {diff_float_init, {1, 2, 3}, "Wrong number of parameters for diff cal function"},
      {mode_init, {1, 1, 1, 1, 1}, "Illegal number of parameters\\(5\\) to mode, should be multiple of 4\n"},
      {thermistor_init, {1},
       "Error: thermistor calibration function error\nInvalid number of parameters, should be 5\n"},
      {td_linear_init, {"/nonexistent/offsets.cal"},
       "/nonexistent/offsets.cal: No such file or directory\n(.|\n)*Error: td_linear calibration function error\n"},
  };
  for (const auto& c : cases) EXPECT_EXIT(init(c.init, c.params), testing::ExitedWithCode(1), c.message);
}
