// The instrument record families, table-driven: each row is a conversion,
// its parameters, a record (or volts) and the outputs expected.  The
// Campbell vectors are worked from the final-storage bit tables; the other
// families' from the instrument manuals' own examples.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "calib/campbell_words.h"
#include "calib/conversions.h"
#include "calib/moist_air.h"
#include "calib/sonic_common.h"
#include "calib_test_util.h"

namespace {

template <size_t N>
std::string B(const char (&bytes)[N]) {
  return std::string(bytes, N - 1);
}

struct Row {
  const char* name;
  Params params;
  std::string rec;  // the record; copied into a zero-filled room as the pipeline does
  std::vector<float> out;
  float tol;
  double t = k2004 + 60;
};

// Runs each row as use 0 of its function and compares the outputs.
void runRows(const std::vector<Row>& rows, float volts = 0) {
  for (const Row& r : rows) {
    InfoPtr info = init(r.name, r.params, static_cast<int>(r.out.size()));
    std::vector<char> room(256, 0);
    std::copy(r.rec.begin(), r.rec.end(), room.begin());
    std::vector<float> out(r.out.size());
    double t = r.t;
    calib_input in;
    if (r.rec.empty())
      in.volts = volts;
    else
      in.raw = room.data();
    calib_function(r.name)(&t, in, out.data(), 0);
    for (size_t i = 0; i < out.size(); ++i)
      if (r.out[i] == kMissing)
        EXPECT_EQ(out[i], kMissing) << r.name << " output " << i;
      else
        EXPECT_NEAR(out[i], r.out[i], r.tol) << r.name << " output " << i;
  }
}

std::string E(const char* module) { return "Error: " + std::string(module) + " calibration function error\n"; }

}  // namespace

TEST(CampbellWords, BitTables) {
  auto w = [](const char* s) { return reinterpret_cast<const unsigned char*>(s); };
  EXPECT_EQ(campbell_low(w("\x20\x64")), 10.0f);
  EXPECT_EQ(campbell_low(w("\xa0\x64")), -10.0f);
  EXPECT_EQ(campbell_low(w("\x7b\x57")), 6.999f);  // 6999 / 1000
  EXPECT_EQ(campbell_array_id(w("\xfc\x05"), CampbellLogger::CR10), 5);
  EXPECT_EQ(campbell_array_id(w("\xfe\x05"), CampbellLogger::CR10), 517);
  EXPECT_EQ(campbell_array_id(w("\xfd\x05"), CampbellLogger::L21X), 261);
  EXPECT_EQ(campbell_array_id(w("\xfe\x05"), CampbellLogger::L21X), -1);  // G = 1: no 21X start
  EXPECT_EQ(campbell_word(w("\x7f\x00"), CampbellLogger::CR10), CampbellWord::Dummy);
  EXPECT_EQ(campbell_word(w("\xbc\x00"), CampbellLogger::CR10), CampbellWord::Invalid);
  EXPECT_EQ(campbell_high(w("\x9c\x30\x3c\x39")), 1234.5f);  // e = 1, M = 12345
  EXPECT_EQ(campbell_high(w("\xde\x86\x3d\x9f")), -0.99999f);  // e = 5, 17-bit M = 99999, B = 1
  EXPECT_EQ(campbell_high(w("\x9c\x30\x1c\x39")), kMissing);   // the second word is another first word
  EXPECT_EQ(campbell_high(w("\x9f\x30\x3c\x39")), kMissing);   // e = 7
}

TEST(Instruments, CampbellRecords) {
  const std::string hi = B("\x9c\x30\x3c\x39");  // 1234.5
  runRows({
      {"camp_cr10", {}, B("\xfc\x05\x20\x64\xa0\x64"), {10, -10}, 0},
      {"camp_cr10", {5, 1}, B("\xfc\x05\x20\x64") + hi + B("\x7f\x00\x00\x07"), {1234.5f, 7}, 0},  // a dummy is skipped
      {"camp_cr10", {6}, B("\xfc\x05\x20\x64"), {kMissing}, 0},                                    // another array
      {"camp_cr10", {}, B("\x20\x64\x20\x64"), {kMissing, kMissing}, 0},                           // no array start
      {"camp_cr10", {}, B("\xfc\x05\x20\x64\xfc\x06\x20\x64"), {10, kMissing}, 0},                 // the next array ends it
      {"camp_cr10", {}, B("\xfc\x05\x9c\x30\x20\x64"), {kMissing, 10}, 0},                          // a lone first word
      {"camp_21x_bin", {261}, B("\xfd\x05\x20\x64"), {10}, 0},
      {"camp_21x_bin", {}, B("\xfe\x05\x20\x64"), {kMissing}, 0},
      {"camp_hr_bin", {}, hi + B("\xdc\x30\x3c\x39"), {1234.5f, -1234.5f}, 0},
      {"camp_hr_bin", {5, 1}, B("\xfc\x05") + hi + hi + B("\x9c\x30\x1c\x39"), {1234.5f, kMissing}, 0},
      {"campbell_binary", {-1, 0, "degC", "W/m2", "%"}, B("\x20\x64") + hi + B("\xa0\x64"), {10, 1234.5f, -10}, 0},
      {"campbell_binary", {5}, B("\x20\x64"), {kMissing}, 0},  // an id wanted, no start
  });
  InfoPtr info = init("campbell_binary", {-1, 0, "degC", "W/m2"}, 2);
  EXPECT_STREQ(info->units[1], "W/m2");
  EXPECT_STREQ(info->paramString, "id=-1, first=0");
}

TEST(Instruments, SonicRecords) {
  ScratchSite site;
  const std::string level = calFile(site, "level.cal", "2004 1 00:00 0 0 0 0 0 0\n");
  const std::string axes = calFile(site, "axes.cal", "2004 1 00:00 0 0 0 0 0 0  0 1 0 1 0 0 0 0 -1\n");
  const std::string gill = B("\xba\xba\0\0\0\x64\xff\x9c\0\x0a\x86\xa0\x2b");  // u 1, v -1, w 0.1, c 344.64
  const float ts = sonic_temperature(344.64f), M = kMissing;
  const std::string metek = "M:x =    10 y =    -3 z =    -1 t =  2203\r\n";
  runRows({
      {"sonic_gill", {level, 1200, 4}, gill, {1, -1, 0.1f, ts, 0, 0, 0, 0, 0}, 1e-5f},
      {"sonic_gill", {level, 1200, 4, "flag", 0, "none", "left"}, gill.substr(2), {1, 1, 0.1f, ts, 0, 0, 0, 0, 0}, 1e-5f},
      {"sonic_gill", {level, 1200, 4}, gill.substr(0, 12) + "\x2a", {M, M, M, M, 2, 2, 2, 2, 65536}, 0},
      {"sonic_gill", {level, 1200, 4, "despike", 1, "C"},  // no speed of sound: the temperature field, 22.00 degC
       B("\xba\xba\x01\x02\0\x64\xff\x9c\0\x0a\0\0\x08\x98\x9e"), {1, -1, 0.1f, 22, 0, 0, 0, 0, 258}, 1e-5f},
      {"sonic_gill", {level, 1200, 4}, gill, {M, M, M, M, M, M, M, M, M}, 0, k2004 - 1},  // before the first record
      {"sonic_gill_transit", {axes, 1200, 4}, gill, {-1, 1, -0.1f, ts, 0, 0, 0, 0, 0}, 1e-5f},
      {"solent_tv", {0}, B("\0\0\0\0\0\0\0\0\x84\xd0\x54"), {sonic_temperature(340)}, 1e-5f},
      {"solent_tv", {}, gill.substr(0, 12) + "\x2a", {M}, 0},
      {"sonic_metek", {level, 1200, 4}, metek, {0.1f, 0.03f, -0.01f, 22.03f, 0, 0, 0, 0, 0}, 1e-5f},
      {"sonic_metek", {level, 1200, 4, "despike", "right"}, "H" + metek.substr(1), {0.1f, -0.03f, -0.01f, 22.03f, 0, 0, 0, 0, 1}, 1e-5f},
      {"sonic_metek", {level, 1200, 4}, "D:x = 10 y = -3q z = -1 t =", {0.1f, M, -0.01f, M, 0, 2, 0, 2, 2}, 1e-5f},
  });
  EXPECT_NEAR(ts, 21.81f, 0.01f);
}

// A sentence with its checksum.
std::string nmea(const std::string& body) {
  unsigned char x = 0;
  for (char c : body) x ^= static_cast<unsigned char>(c);
  char cs[8];
  snprintf(cs, sizeof cs, "*%02X\r\n", x);
  return "$" + body + cs;
}

TEST(Instruments, GpsSentences) {
  const float M = kMissing;
  const std::string gga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
  const std::string rmc = nmea("GPRMC,123519,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W");
  const double zda = 837192489.456;  // 1996-07-12 17:28:09.456 UTC
  runRows({
      {"gps", {}, gga, {48.1173f, 11.516667f, 545.4f, 1, 8, 0.9f}, 1e-5f},
      {"gps", {}, "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*48", {M, M, M, M, M, M}, 0},
      {"gps", {}, nmea("GNGGA,123519,4807.038,N,01131.000,E,0,03,,,M,,M,,"), {M, M, M, 0, 3, M}, 0},  // no fix
      {"gps", {"RMC"}, rmc, {48.1173f, -11.516667f, M, 1, M, M}, 1e-5f},
      {"gps_date", {}, nmea("GPZDA,172809.456,12,07,1996,00,00"), {1996, 7, 12, 62889.456f, 0.5f}, 1e-3f, zda - 0.5},
      {"gps_date", {}, nmea("GPZDA,172809.456,12,13,1996,00,00"), {M, M, M, M, M}, 0},  // month 13
      {"gps_date", {"RMC"}, rmc, {1994, 3, 23, 45319, -1}, 1e-3f, 764426119 + 1},
      {"gps_date", {"RMC"}, nmea("GPRMC,123519,V,,,,,,,230394,,"), {M, M, M, M, M}, 0},
  });
}

TEST(Instruments, HumidityFromTheProbesTemperature) {
  const float M = kMissing;
  InfoPtr t = init("t_vaisala", {20, 0, 0});
  double time = k2004;
  float temp;
  calib_input v;
  v.volts = 0;
  t_vaisala(&time, v, &temp, 0);  // 20 degC
  sharedValues[SHARED_PRESSURE] = 1000;
  const struct {
    Params params;
    float volts;
    std::vector<float> out;
  } cases[] = {
      {{}, 0.5f, {50, 8.64264f, 7.35827f, 9.27096f}},
      {{100, 0, 0}, 1.02f, {100, 17.2853f, 14.8927f, 20}},  // a little above saturation: clamped
      {{}, 1.1f, {110, M, M, M}},
      {{}, 0, {0, M, M, M}},
      {{100, 0, 3}, 0.5f, {50, M, M, M}},  // no such t_vaisala use
  };
  for (const auto& c : cases) runRows({{"h2o_vaisala", c.params, "", c.out, 1e-3f}}, c.volts);
  sharedValues[SHARED_PRESSURE] = M;
  runRows({{"h2o_vaisala", {}, "", {50, 8.64264f, M, 9.27096f}, 1e-3f}}, 0.5f);
}

// Big-endian IEEE 754 floats, as a datalogger sends them.
std::string bigFloats(std::initializer_list<float> v) {
  std::string r;
  for (float f : v) {
    uint32_t u;
    memcpy(&u, &f, 4);
    for (int s = 24; s >= 0; s -= 8) r += static_cast<char>(u >> s & 0xff);
  }
  return r;
}

TEST(Instruments, GasRainRadiationAndModes) {
  const float M = kMissing;
  const std::string labelled = "(Data (Ndx 1545)(DiagVal 250)(CO2Raw 8.9e-2)(CO2D 3.2183277e1)(H2ORaw 5.6e-2)"
                               "(H2OD 1.9687008e2)(Temp 2.4227569e1)(Pres 9.8640356e1)(Aux 0)(Cooler 1.57))\n";
  const std::string fields = "Ndx,DiagVal,CO2D,H2OD,Temp,Pres";
  runRows({
      {"licor_7500", {"labels"}, labelled, {32.183277f, 196.87008f, 24.227569f, 98.640356f, 250, 10}, 1e-4f},
      {"licor_7500", {fields}, "1545\t254\t15.1234\t354.123\t24.5\t101.3\r\n", {15.1234f, 354.123f, 24.5f, 101.3f, 254, 14}, 1e-4f},
      {"licor_7500", {fields}, "1545\t254\t\t354.123\tx\n", {M, 354.123f, M, M, 254, 14}, 1e-4f},  // empty, garbled, absent
      {"rain_sti700", {0, 1, 6}, "R- .118 000.709 01** 4999 0044 0062 +25\r\n", {0.118f, 0.709f, 25}, 1e-6f},
      {"rain_sti700", {}, "  0.000 012.500 00** 4999 0044 0062 +25", {0, 12.5f}, 1e-6f},  // no weather, no code
      {"rain_sti700", {0, 2}, "ER .118 000.709 01**", {M, M}, 0},
      {"rain_sti700", {0, 2}, "R .118 000.709 01**", {0.118f, M}, 1e-6f},
      {"rad_net_Q7", {10, 12, "big", 0, 4}, bigFloats({2, 5}), {21.23827f, 20}, 1e-4f},
      {"rad_net_Q7", {10, 12, "big", 0, 4}, bigFloats({-1, 5}), {-12.075f, -12}, 1e-4f},
      {"rad_net_Q7", {10, 12, "big", 0, 4}, bigFloats({2, -1}), {M, 20}, 1e-4f},  // no usable wind
      {"rad_net_Q7", {10, 12, "little", 0, -1, 0}, std::string("\0\0\0\x40", 4), {20, 20}, 1e-4f},
      {"rad_net_Q7", {10, 12, "big", 4, -2}, bigFloats({0, -2}), {-24, -24}, 1e-4f},
  });
  ScratchSite site;
  const std::string co2 = calFile(site, "co2.cal", "2004 1 1 00:00:00 2 100\n2004 1 1 10:00:00 4 200\n");
  const struct {
    Row row;
    float volts;
  } analog[] = {
      {{"teco", {500, 10}, "", {250}, 1e-4f}, 5},
      {{"teco", {500, 10, 2, "ppbv"}, "", {M}, 0}, 10.6f},
      {{"licor_co2", {co2}, "", {156}, 1e-3f, k2004 + 5 * 3600}, 2},
      {{"licor_co2", {co2}, "", {M}, 0, k2004 - 1}, 2},
      {{"licor_mode", {0, -0.5, 0.5, 0, 1, 0.5, 1.5, 2}, "", {0}, 0}, 0},
      {{"sf6_mode", {0, -0.5, 0.5, 0, 1, 0.5, 1.5, 2}, "", {M}, 0}, 1},  // settling
  };
  for (const auto& a : analog) runRows({a.row}, a.volts);
  // Krypton hygrometer signals carried in records: rho = (lnV0 - ln V) / (x kw).
  const std::string kh = calFile(site, "kh2o.cal", "2004 1 1 00:00:00 1.3 0.145 1.62\n");
  auto rho = [](double v) { return static_cast<float>((1.62 - log(v)) / (1.3 * 0.145)); };
  runRows({
      {"q_kh2o_serial", {kh, "big", 2, "float"}, "xx" + bigFloats({1.96898f}), {rho(1.96898)}, 1e-4f},
      {"q_kh2o_serial", {kh, "big", 0, "short", 0.001}, B("\x07\xb1"), {rho(1.969)}, 1e-4f},
      {"q_kh2o_serial", {kh, "little", 0, "ushort", 0.001}, B("\0\0"), {M}, 0},  // no signal
      {"q_kh2o_serializer", {kh, "big", 0, 0, 5, 12}, B("\x06\x4d"), {rho(1613 * 5 / 4096.0)}, 1e-4f},
      {"q_kh2o_serializer", {kh, "big", 0, 0, 5, 12, 2, -1}, B("\x06\x4d"), {rho((1613 * 5 / 4096.0 + 1) / 2)}, 1e-4f},
      {"q_kh2o_serializer", {kh, "big", 0, 0, 5, 12}, B("\x0f\xff"), {M}, 0},  // at the rail
      {"q_kh2o_serializer", {kh, "big", 0, 1, 5, 12}, B("\xf8\x00"), {M}, 0},  // -2048: the signed rail
  });
  InfoPtr info = init("licor_co2", {co2}, 1);
  EXPECT_STREQ(info->units[0], "umol/mol");
}

TEST(Instruments, MoistAir) {
  for (double t : {-30.0, 0.0, 20.0, 40.0}) EXPECT_NEAR(moist_dew_point(moist_es(t)), t, 1e-9);
  EXPECT_NEAR(moist_es(0), 6.1121, 1e-9);
  EXPECT_EQ(moist_dew_point(0), kMissing);
}

TEST(InstrumentsDeathTest, InitFaultsOncePerFamily) {
  ScratchSite site;
  calFile(site, "six.cal", "2004 1 00:00 0 0 0 0 0 0\n");
  const struct {
    const char* name;
    Params params;
    std::string message;
    int nout;
  } cases[] = {
      {"camp_cr10", {1, 0, "degC"}, E("camp_cr10") + "Invalid number of parameters \\(3\\), should be 0 to 2, or 4 with units\n", 2},
      {"sonic_gill", {"six.cal", 1200, 4, "despike", 2}, E("sonic_gill") + "The header switch 2 is neither 0 nor 1\n", 9},
      {"sonic_gill_transit", {"six.cal", 1200, 4}, E("sonic_gill_transit") + "Calibration file six.cal has 6 values per record, should have 15\n", 9},
      {"sonic_metek", {"six.cal", 1200, 4}, E("sonic_metek") + "Invalid number of outputs \\(4\\), should be 9\n", 4},
      {"gps", {"GSV"}, E("gps") + "Sentence \"GSV\" is neither \"GGA\" nor \"RMC\"\n", 6},
      {"gps_date", {}, E("gps_date") + "Invalid number of outputs \\(3\\), should be 5\n", 3},
      {"h2o_vaisala", {100, 0, 1, 2}, E("h2o_vaisala") + "Invalid number of parameters \\(4\\), should be 0 to 3\n", 4},
      {"licor_7500", {}, E("licor_7500") + "Invalid number of parameters, should be 1\n", 6},
      {"rain_sti700", {0, 1.5}, E("rain_sti700") + "Field 1.5 is not a whole number from 0 to 15\n", 2},
      {"rad_net_Q7", {10, 12, "big", 0, -1}, E("rad_net_Q7") + "A fixed wind speed is given with wind source -1, and only then\n", 2},
      {"teco", {500, 0}, E("teco") + "The full-scale voltage 0 is not above 0\n", 1},
      {"licor_mode", {1, 2, 3}, "Illegal number of parameters\\(3\\) to licor_mode, should be multiple of 4\n", 1},
      {"q_kh2o_serial", {"kh2o.cal", "big", 0, "double"}, E("q_kh2o_serial") + "Field type \"double\" is none of \"float\", \"short\" and \"ushort\"\n", 1},
      {"q_kh2o_serializer", {"kh2o.cal", "big", 0, 0, 5, 24}, E("q_kh2o_serializer") + "The converter's bit count 24 is not a whole number from 2 to 16\n", 1},
      {"camp_21x_bin", {600}, E("camp_21x_bin") + "Array id 600 is not -1 \\(any\\) or a whole number from 0 to 511\n", 1},
  };
  for (const auto& c : cases) EXPECT_EXIT(init(c.name, c.params, c.nout), testing::ExitedWithCode(1), c.message) << c.name;
}
