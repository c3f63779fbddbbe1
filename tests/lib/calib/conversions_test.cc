// The conversions as the pipeline reaches them: looked up by name, set up
// with their parameters, then fed inputs at sample times.
#include <math.h>
#include <string.h>

#include "calib/conversions.h"
#include "calib_test_util.h"

namespace {

// Record bytes as the instrument sends them (4-byte floats and 2-byte
// integers big-endian), embedded zeros included.
template <size_t N>
std::string B(const char (&bytes)[N]) {
  return std::string(bytes, N - 1);
}

// One sample: its time, its input (volts, or a record when rec is set), the
// outputs wanted, and how much the conversion moves the time.
struct Step {
  Step(double t, float volts, std::vector<float> out, double dt = 0) : t(t), dt(dt), volts(volts), out(out) {}
  Step(double t, std::string rec, std::vector<float> out) : t(t), rec(rec), out(out) {}
  double t, dt = 0;
  float volts = 0;
  std::string rec;
  std::vector<float> out;
};

struct Case {
  const char* name;
  Params params;
  std::vector<std::string> units;  // also gives nout
  const char* summary;             // null: not checked
  std::vector<Step> steps;
};

}  // namespace

TEST(Conversions, ByNameWithParametersInputsAndUnits) {
  ScratchSite site;
  const std::string tdl = calFile(site, "tdl.cal", "2004 1 00:00 2 1\n2004 2 00:00 4 -1\n2004 3 00:00 1 0\n");
  const std::string dt = calFile(site, "dt.cal", "2004 1 00:00 2 1 -0.25\n");
  const std::string fis = calFile(site, "fis.cal", "2004 1 00:00 0.5 10 2.5 50\n2004 2 00:00 1 1 1 2\n");
  const std::string gill = calFile(site, "gill.cal", "2004 1 00:00 0\n2004 1 12:00 30\n");
  const std::string drift = calFile(site, "drift.cal", "2004 1 1 00:00:00 1 0\n2004 1 1 10:00:00 2 10\n"
                                                       "2004 1 1 20:00:00 2 30\n");
  const std::string kh2o = calFile(site, "kh2o.cal", "2004 1 1 00:00:00 1 0.2 1\n2004 1 1 10:00:00 3 0.4 3 # x kw lnV0\n"
                                                     "2004 1 3 02:00:00 3 0 3\n");
  const double l = log(1000.0 / 250.0 - 1.0), h = 3600, day = 86400, c60 = 5 * cos(M_PI / 3), s60 = 5 * sin(M_PI / 3);
  const double cal = k2004 + 13 * h;  // the second offset is in force
  const short pressure[2] = {1013, 25};    // host order
  const std::string generic(reinterpret_cast<const char*>(pressure), 4), gill500 = B("\x01\xf4\0\0\0\xb4\0\0");
  const std::vector<float> none(4, kMissing);
  Case cases[] = {
      {"linear", {2, 1, "W/m2"}, {"W/m2"}, "slope=2.00, intcpt=1.00", {{0, 1.5f, {4}}, {0, -2.0f, {-3}}}},
      {"plinear", {100, 500, "mb", 850}, {"mb"}, nullptr, {{0, 4.0f, {900}}}},
      {"t_AIR", {10, -20}, {"degC"}, nullptr, {{0, 3.5f, {15}}}},
      {"t_vaisala", {-40, 20, 0.5}, {"degC"}, "A0=-40.00, A1=20.00, A2=0.50", {{0, 2.0f, {2}}}},
      {"poly", {"degC", 1, -2, 0.5}, {"degC"}, "A0=1,A1=-2,A2=0.5,", {{0, 3.0f, {-0.5}}}},
      {"power", {1, 2, 10, 0.5, "mm/h"}, {"mm/h"}, "V0=1, A=2, B=10, C=0.5",
       {{0, 0.5f, {0}}, {0, 1.0f, {2 * sqrtf(10)}}, {0, 4.0f, {200}}}},
      {"thermistor", {1.129241e-3, 2.341077e-4, 0, 8.775468e-8, 1000}, {"degK"},
       "A0=1.1292e-03, A1=2.3411e-04, A2=0.0000e+00, A3=8.7755e-08, K=1000.0",
       {{0, 0.25f, {static_cast<float>(1 / (1.129241e-3 + 2.341077e-4 * l + 8.775468e-8 * l * l * l))}},
        {0, 1.0f, {kMissing}}, {0, 2.0f, {kMissing}}, {0, 0.0f, {kMissing}}}},
      // x, kw and ln(V0) each interpolated; the first before it, the last (whose kw is 0) after it.
      {"q_kh2o", {kh2o}, {"g/m^3"}, "\"kh2o.cal\"",
       {{k2004 - 1, 1.0f, {5}}, {k2004, 0.5f, {static_cast<float>((1 + log(2.0)) / 0.2)}}, {k2004 + 5 * h, 1.0f, {2 / 0.6f}},
        {k2004 + 30 * h, 1.0f, {5}}, {k2004 + 30 * h, -0.5f, {kMissing}}, {k2004 + 60 * h, 1.0f, {kMissing}}}},
      {"status", {}, {""}, "threshold=2.50V", {{0, 2.49f, {0}}, {0, 2.5f, {1}}}},
      // A mode reads 1e37 until its voltage has held for its settling time.
      {"mode", {1, 0, 1, 0, 2, 1.5, 2.5, 30}, {""}, " 1=( 0.0, 1.0)V (  0.00s)   2=( 1.5, 2.5)V ( 30.00s)  ",
       {{100, 0.5f, {1}}, {101, 1.2f, {kMissing}}, {102, 2.0f, {kMissing}}, {131.9, 2.0f, {kMissing}},
        {132, 2.5f, {2}}, {133, 1.0f, {1}}}},
      {"baro_GENERIC", {}, {"mb"}, nullptr, {{0, generic, {1013.25}}}},
      // 101.5, then 21.5 and 998.25, 7.5 at byte 20, 10 and 12.5 and 7.5 as floats 0, 1 and 5.
      {"baro_PARA", {}, {"mb"}, nullptr, {{0, B("\x42\xcb\0\0"), {1015}}}},
      {"baro_vais", {}, {"degC", "mb"}, nullptr, {{0, B("\x41\xac\0\0\x44\x79\x90\0"), {21.5, 998.25}}}},
      {"dual_uv", {}, {"gr/kg"}, nullptr, {{0, std::string(20, 0) + B("\x40\xf0\0\0"), {7.5}}}},
      {"diff_float", {1, 0, 0, 5}, {"", ""}, nullptr, {{0, B("\x41\x20\0\0\x41\x48\0\0") + std::string(12, 0) + B("\x40\xf0\0\0"), {2.5, 2.5}}}},
      // From the east at 5 m/s: blowing towards -x.
      // 21.5 and 998.25, -200 and 1000, 65000, each written big- and little-endian.
      {"serial_float", {"big"}, {"", ""}, "order=big, offset=0, stride=4", {{0, B("\x41\xac\0\0\x44\x79\x90\0"), {21.5, 998.25}}}},
      {"serial_float", {"little", 2, 6}, {"", ""}, nullptr, {{0, B("\x99\x99\0\0\xac\x41\x99\x99\0\x90\x79\x44"), {21.5, 998.25}}}},
      {"serial_short", {"big"}, {"", ""}, nullptr, {{0, B("\xff\x38\x03\xe8"), {-200, 1000}}}},
      {"serial_short", {"little", 1, 3}, {"", ""}, nullptr, {{0, B("\x99\x38\xff\x99\xe8\x03"), {-200, 1000}}}},
      {"serial_ushort", {"big"}, {""}, nullptr, {{0, B("\xfd\xe8"), {65000}}}},
      {"serial_ushort", {"little"}, {""}, nullptr, {{0, B("\xe8\xfd"), {65000}}}},
      {"serial_float_linear", {"big", 0, 4, 2, 1, "degC", 0.5, -3, "%"}, {"degC", "%"}, "order=big, offset=0, stride=4: 2*x+1 0.5*x-3",
       {{0, B("\x41\xac\0\0\x44\x79\x90\0"), {44, 496.125}}, {0, B("\x7f\xc0\0\0\x44\x79\x90\0"), {kMissing, 496.125}}}},  // NaN: missing
      {"wind_rmy", {}, {"m/s", "m/s", "m/s", "deg"}, nullptr, {{0, B("\x40\xa0\0\0\x42\xb4\0\0"), {-5, 0, 5, 90}}}},
      // 5 m/s from the south (180 degrees), status byte 0.
      {"wind_gill", {gill, 1}, {"m/s", "m/s", "deg", "m/s"}, nullptr,
       {{k2004 - 1, gill500, none},
        {k2004 + 60, gill500, {0, 5, 180, 5}},
        {cal, gill500, {static_cast<float>(c60), static_cast<float>(s60), 180, 5}},
        {cal, B("\x01\xf4\0\0\0\xb4\x01\0"), none},  // status fault
        {cal, B("\x01\xf4\0\0\xd8\xf0\0\0"), none}}},
      {"td_linear", {tdl, "mV"}, {"mV"}, "\"tdl.cal\"",
       // A record applies from its own time; of several passed, the latest wins; the last applies for ever.
       {{k2004 - 1, 2.0f, {kMissing}}, {k2004, 2.0f, {5}}, {k2004 + day - 1, 2.0f, {5}}, {k2004 + 2 * day, 2.0f, {2}},
        {k2004 + 1e9, 2.0f, {2}}}},
      {"td_linear_dt", {dt}, {""}, nullptr, {{k2004 - 1, 2.0f, {kMissing}}, {k2004 + 5, 2.0f, {5}, -0.25}}},
      {"fis_linear", {fis, "ppm"}, {"ppm"}, nullptr,  // the second record has both points at 1 V
       {{k2004 + 1, 1.5f, {30}}, {k2004 + 1, 0.0f, {0}}, {k2004 + day, 1.5f, {kMissing}}}},
      // Interpolated between the records that bracket the sample, then
      // extrapolated from the last two.
      {"td_linear_interp", {drift, "mV"}, {"mV"}, nullptr,
       {{k2004 - 1, 1.0f, {kMissing}}, {k2004, 2.0f, {2}}, {k2004 + 5 * h, 2.0f, {8}},
        {k2004 + 15 * h, 1.0f, {22}}, {k2004 + 30 * h, 1.0f, {52}}}},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int nout = static_cast<int>(c.units.size());
    EXPECT_EQ(init(c.name, c.params, nout, 0, 0)->iout, nout);  // a description only
    InfoPtr info = init(c.name, c.params, nout);
    EXPECT_EQ(std::vector<std::string>(info->units, info->units + info->iout), c.units);
    EXPECT_STREQ(info->paramString, c.summary ? c.summary : info->paramString);
    calib_func_t f = calib_function(c.name);
    for (const Step& s : c.steps) {
      std::vector<float> out(c.units.size(), -99.0f);
      calib_input in;
      if (s.rec.empty()) in.volts = s.volts;
      else in.raw = s.rec.data();
      double t = s.t;
      f(&t, in, out.data(), 0);
      EXPECT_EQ(t, s.t + s.dt);
      for (size_t i = 0; i < out.size(); ++i)
        EXPECT_NEAR(out[i], s.out[i], 1e-5 * fmax(1, fabs(s.out[i]))) << "t=" << s.t - k2004 << " output " << i;
    }
  }
  // What the thermometers and the latest barometer publish for the humidity conversions.
  EXPECT_EQ(std::vector<double>({sharedValues[SHARED_PRESSURE], temp_AIR[0], temp_vaisala[0]}),
            std::vector<double>({1015, 15, 2}));
}

TEST(Conversions, UsesKeepTheirOwnCoefficientsAndPresets) {
  InfoPtr a = init("linear", {2, 1}, 1, 0, 2), b = init("linear", {-0.5, 3}, 1, 1, 2);
  float out[2];
  double t = 0;
  for (int use : {0, 1}) linear(&t, calib_input{1.5f + use * 0.5f}, &out[use], use);
  EXPECT_EQ(std::vector<float>(out, out + 2), (std::vector<float>{4, 2}));
  InfoPtr p = init("plinear", {100, 500, "mb", 850});
  EXPECT_EQ(sharedValues[SHARED_PRESSURE], 850.0f);  // preset before the first sample
}
