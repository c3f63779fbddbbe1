// The conversions as the pipeline reaches them: looked up by name, set up
// with their parameters, then fed inputs at sample times.
#include "calib/conversions.h"
#include "calib_test_util.h"

TEST(Conversions, VoltsByNameWithParametersAndUnits) {
  const double l = log(1000.0 / 250.0 - 1.0);
  const float e = 1e-5f, M = kMissing;
  runCases({
      {"linear", {2, 1, "W/m2"}, {{0, 1.5f, {4}}, {0, -2.0f, {-3}}}, e, {"W/m2"}, "slope=2.00, intcpt=1.00"},
      {"plinear", {100, 500, "mb", 850}, {{0, 4.0f, {900}}}, e, {"mb"}},
      {"t_AIR", {10, -20}, {{0, 3.5f, {15}}}, e, {"degC"}},
      {"t_vaisala", {-40, 20, 0.5}, {{0, 2.0f, {2}}}, e, {"degC"}, "A0=-40.00, A1=20.00, A2=0.50"},
      {"poly", {"degC", 1, -2, 0.5}, {{0, 3.0f, {-0.5}}}, e, {"degC"}, "A0=1,A1=-2,A2=0.5,"},
      {"power", {1, 2, 10, 0.5, "mm/h"}, {{0, 0.5f, {0}}, {0, 1.0f, {2 * sqrtf(10)}}, {0, 4.0f, {200}}}, e, {"mm/h"}, "V0=1, A=2, B=10, C=0.5"},
      {"thermistor", {1.129241e-3, 2.341077e-4, 0, 8.775468e-8, 1000},
       {{0, 0.25f, {static_cast<float>(1 / (1.129241e-3 + 2.341077e-4 * l + 8.775468e-8 * l * l * l))}}, {0, 1.0f, {M}}, {0, 2.0f, {M}}, {0, 0.0f, {M}}},
       e, {"degK"}, "A0=1.1292e-03, A1=2.3411e-04, A2=0.0000e+00, A3=8.7755e-08, K=1000.0"},
      {"status", {}, {{0, 2.49f, {0}}, {0, 2.5f, {1}}}, e, {""}, "threshold=2.50V"},
      // A mode reads 1e37 until its voltage has held for its settling time.
      {"mode", {1, 0, 1, 0, 2, 1.5, 2.5, 30}, {{100, 0.5f, {1}}, {101, 1.2f, {M}}, {102, 2.0f, {M}}, {131.9, 2.0f, {M}}, {132, 2.5f, {2}}, {133, 1.0f, {1}}},
       e, {""}, " 1=( 0.0, 1.0)V (  0.00s)   2=( 1.5, 2.5)V ( 30.00s)  "},
  });
  // What the thermometers publish for the humidity conversions.
  EXPECT_EQ((std::vector<double>{temp_AIR[0], temp_vaisala[0]}), (std::vector<double>{15, 2}));
}

// Records, and conversions whose coefficients come from calibration files by sample time.
TEST(Conversions, RecordsAndCalibrationFiles) {
  ScratchSite site;
  const std::string tdl = calFile(site, "tdl.cal", "2004 1 00:00 2 1\n2004 2 00:00 4 -1\n2004 3 00:00 1 0\n");
  const std::string dt = calFile(site, "dt.cal", "2004 1 00:00 2 1 -0.25\n");
  const std::string fis = calFile(site, "fis.cal", "2004 1 00:00 0.5 10 2.5 50\n2004 2 00:00 1 1 1 2\n");
  const std::string gill = calFile(site, "gill.cal", "2004 1 00:00 0\n2004 1 12:00 30\n");
  const std::string drift = calFile(site, "drift.cal", "2004 1 1 00:00:00 1 0\n2004 1 1 10:00:00 2 10\n"
                                                       "2004 1 1 20:00:00 2 30\n");
  const std::string kh2o = calFile(site, "kh2o.cal", "2004 1 1 00:00:00 1 0.2 1\n2004 1 1 10:00:00 3 0.4 3 # x kw lnV0\n"
                                                     "2004 1 3 02:00:00 3 0 3\n");
  const double h = 3600, day = 86400, c60 = 5 * cos(M_PI / 3), s60 = 5 * sin(M_PI / 3);
  const double cal = k2004 + 13 * h;  // the second offset is in force
  const short pressure[2] = {1013, 25};    // host order
  const std::string generic(reinterpret_cast<const char*>(pressure), 4), gill500 = B("\x01\xf4\0\0\0\xb4\0\0");
  const std::vector<float> none(4, kMissing);
  const float e = 1e-5f, M = kMissing;
  runCases({
      // x, kw and ln(V0) each interpolated; the first before it, the last (whose kw is 0) after it.
      {"q_kh2o", {kh2o},
       {{k2004 - 1, 1.0f, {5}}, {k2004, 0.5f, {static_cast<float>((1 + log(2.0)) / 0.2)}}, {k2004 + 5 * h, 1.0f, {2 / 0.6f}},
        {k2004 + 30 * h, 1.0f, {5}}, {k2004 + 30 * h, -0.5f, {M}}, {k2004 + 60 * h, 1.0f, {M}}},
       e, {"g/m^3"}, "\"kh2o.cal\""},
      {"baro_GENERIC", {}, {{0, generic, {1013.25}}}, e, {"mb"}},
      // 101.5, then 21.5 and 998.25, 7.5 at byte 20, 10 and 12.5 and 7.5 as floats 0, 1 and 5.
      {"baro_PARA", {}, {{0, B("\x42\xcb\0\0"), {1015}}}, e, {"mb"}},
      {"baro_vais", {}, {{0, B("\x41\xac\0\0\x44\x79\x90\0"), {21.5, 998.25}}}, e, {"degC", "mb"}},
      {"dual_uv", {}, {{0, std::string(20, 0) + B("\x40\xf0\0\0"), {7.5}}}, e, {"gr/kg"}},
      {"diff_float", {1, 0, 0, 5}, {{0, B("\x41\x20\0\0\x41\x48\0\0") + std::string(12, 0) + B("\x40\xf0\0\0"), {2.5, 2.5}}}},
      // 21.5 and 998.25, -200 and 1000, 65000, each written big- and little-endian.
      {"serial_float", {"big"}, {{0, B("\x41\xac\0\0\x44\x79\x90\0"), {21.5, 998.25}}}, e, {}, "order=big, offset=0, stride=4"},
      {"serial_float", {"little", 2, 6}, {{0, B("\x99\x99\0\0\xac\x41\x99\x99\0\x90\x79\x44"), {21.5, 998.25}}}},
      {"serial_short", {"big"}, {{0, B("\xff\x38\x03\xe8"), {-200, 1000}}}},
      {"serial_short", {"little", 1, 3}, {{0, B("\x99\x38\xff\x99\xe8\x03"), {-200, 1000}}}},
      {"serial_ushort", {"little"}, {{0, B("\xe8\xfd"), {65000}}}},
      {"serial_float_linear", {"big", 0, 4, 2, 1, "degC", 0.5, -3, "%"},
       {{0, B("\x41\xac\0\0\x44\x79\x90\0"), {44, 496.125}}, {0, B("\x7f\xc0\0\0\x44\x79\x90\0"), {M, 496.125}}},  // NaN: missing
       e, {"degC", "%"}, "order=big, offset=0, stride=4: 2*x+1 0.5*x-3"},
      // From the east at 5 m/s: blowing towards -x.
      {"wind_rmy", {}, {{0, B("\x40\xa0\0\0\x42\xb4\0\0"), {-5, 0, 5, 90}}}, e, {"m/s", "m/s", "m/s", "deg"}},
      // 5 m/s from the south (180 degrees), status byte 0.
      {"wind_gill", {gill, 1},
       {{k2004 - 1, gill500, none}, {k2004 + 60, gill500, {0, 5, 180, 5}}, {cal, gill500, {float(c60), float(s60), 180, 5}},
        {cal, B("\x01\xf4\0\0\0\xb4\x01\0"), none}, {cal, B("\x01\xf4\0\0\xd8\xf0\0\0"), none}},  // a status fault, then no wind
       e, {"m/s", "m/s", "deg", "m/s"}},
      // A record applies from its own time; of several passed, the latest wins; the last applies for ever.
      {"td_linear", {tdl, "mV"},
       {{k2004 - 1, 2.0f, {M}}, {k2004, 2.0f, {5}}, {k2004 + day - 1, 2.0f, {5}}, {k2004 + 2 * day, 2.0f, {2}}, {k2004 + 1e9, 2.0f, {2}}},
       e, {"mV"}, "\"tdl.cal\""},
      {"td_linear_dt", {dt}, {{k2004 - 1, 2.0f, {M}}, {k2004 + 5, 2.0f, {5}, -0.25}}},
      {"fis_linear", {fis, "ppm"}, {{k2004 + 1, 1.5f, {30}}, {k2004 + 1, 0.0f, {0}}, {k2004 + day, 1.5f, {M}}}},  // the second record has both points at 1 V
      // Interpolated between the records that bracket the sample, then extrapolated from the last two.
      {"td_linear_interp", {drift, "mV"},
       {{k2004 - 1, 1.0f, {M}}, {k2004, 2.0f, {2}}, {k2004 + 5 * h, 2.0f, {8}}, {k2004 + 15 * h, 1.0f, {22}}, {k2004 + 30 * h, 1.0f, {52}}},
       e, {"mV"}},
  });
  EXPECT_EQ(sharedValues[SHARED_PRESSURE], 1015);  // the latest barometer publishes its pressure
}

TEST(Conversions, UsesKeepTheirOwnCoefficientsAndPresets) {
  InfoPtr a = init("linear", {2, 1}, 1, 0, 2), b = init("linear", {-0.5, 3}, 1, 1, 2);
  EXPECT_EQ((std::vector<float>{convert("linear", 1.5f, 1, 0, 0)[0], convert("linear", 2.0f, 1, 0, 1)[0]}),
            (std::vector<float>{4, 2}));
  InfoPtr p = init("plinear", {100, 500, "mb", 850});
  EXPECT_EQ(sharedValues[SHARED_PRESSURE], 850.0f);  // preset before the first sample
}
