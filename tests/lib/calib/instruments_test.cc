// The instrument record families, table-driven: each row is a conversion,
// its parameters, a record (or volts) and the outputs expected.  The
// Campbell vectors are worked from the final-storage bit tables; the other
// families' from the instrument manuals' own examples.

#include <stdlib.h>
#include <string.h>

#include <random>

#include "calib/campbell_words.h"
#include "calib/conversions.h"
#include "calib/decimal.h"
#include "calib/sonic_common.h"
#include "calib_test_util.h"

namespace {

// A case of one sample.
Case row(const char* name, Params p, Input in, std::vector<float> out, float tol, double t = k2004 + 60) {
  return Case{name, std::move(p), {{t, std::move(in), std::move(out)}}, tol};
}

}  // namespace

// What the record rows below do not reach.
TEST(CampbellWords, BitTables) {
  auto w = [](const char* s) { return reinterpret_cast<const unsigned char*>(s); };
  EXPECT_EQ(campbell_low(w("\x7b\x57")), 6.999f);  // 6999 / 1000
  EXPECT_EQ(campbell_array_id(w("\xfe\x05"), CampbellLogger::CR10), 517);
  EXPECT_EQ(campbell_word(w("\xbc\x00"), CampbellLogger::CR10), CampbellWord::Invalid);
  EXPECT_EQ(campbell_high(w("\xde\x86\x3d\x9f")), -0.99999f);  // e = 5, 17-bit M = 99999, B = 1
  EXPECT_EQ(campbell_high(w("\x9f\x30\x3c\x39")), kMissing);   // e = 7
}

// The ASCII decoders' number reader gives strtod's value, bit for bit, and
// its end: the fields instruments send, the forms it hands on to strtod, and
// a sweep of every digit count up to 19 around the decimal point.
TEST(DecimalReader, AgreesWithStrtod) {
  std::vector<std::string> texts = {"0", "-0", "+.5", "5.", "5.e3", ".", "-", "+", "e5", "1e", "1e+", "1E-5x", " 10", "\t-3",
                                    "000.709", "3.2183277e1", "-0.000", "9007199254740993", "9007199254740992.5",
                                    "12345678901234567890", "1e22", "1e23", "4.9e-324", "1e400", "1e99999", "inf", "nan",
                                    "0x1p3", "1,5", "4807.038,N", "2.0000000000000000000000001"};
  std::mt19937_64 rng(7);
  for (int digits = 1; digits <= 19; ++digits)
    for (int n = 0; n < 400; ++n) {
      std::string d;
      while (static_cast<int>(d.size()) < digits) d += static_cast<char>('0' + rng() % 10);
      const size_t point = rng() % (d.size() + 1);
      std::string t = (n % 2 ? "-" : "") + d.substr(0, point) + "." + d.substr(point);
      if (n % 3 == 0) t += "e" + std::to_string(static_cast<int>(rng() % 41) - 20);
      texts.push_back(t);
    }
  for (const std::string& t : texts) {
    char *want_end, *got_end;
    const double want = strtod(t.c_str(), &want_end), got = heron::decimal_strtod(t.c_str(), &got_end);
    EXPECT_EQ(memcmp(&want, &got, sizeof want), 0) << t << ": " << want << " != " << got;
    EXPECT_EQ(got_end - t.c_str(), want_end - t.c_str()) << t;
  }
}

TEST(Instruments, LoggerRecordsAndGpsSentences) {
  const std::string hi = B("\x9c\x30\x3c\x39");  // 1234.5
  const float M = kMissing;
  // Sentences with their checksums.
  const std::string gga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
  const std::string rmc = "$GPRMC,123519,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W*78\r\n";
  const double zda = 837192489.456;  // 1996-07-12 17:28:09.456 UTC
  runCases({
      row("camp_cr10", {}, B("\xfc\x05\x20\x64\xa0\x64"), {10, -10}, 0),
      row("camp_cr10", {5, 1}, B("\xfc\x05\x20\x64") + hi + B("\x7f\x00\x00\x07"), {1234.5f, 7}, 0),  // a dummy is skipped
      row("camp_cr10", {6}, B("\xfc\x05\x20\x64"), {kMissing}, 0),                                    // another array
      row("camp_cr10", {}, B("\x20\x64\x20\x64"), {kMissing, kMissing}, 0),                           // no array start
      row("camp_cr10", {}, B("\xfc\x05\x20\x64\xfc\x06\x20\x64"), {10, kMissing}, 0),                 // the next array ends it
      row("camp_cr10", {}, B("\xfc\x05\x9c\x30\x20\x64"), {kMissing, 10}, 0),                          // a lone first word
      row("camp_21x_bin", {261}, B("\xfd\x05\x20\x64"), {10}, 0),
      row("camp_21x_bin", {}, B("\xfe\x05\x20\x64"), {kMissing}, 0),
      row("camp_hr_bin", {}, hi + B("\xdc\x30\x3c\x39"), {1234.5f, -1234.5f}, 0),
      row("camp_hr_bin", {5, 1}, B("\xfc\x05") + hi + hi + B("\x9c\x30\x1c\x39"), {1234.5f, kMissing}, 0),
      {"campbell_binary", {-1, 0, "degC", "W/m2", "%"}, {{k2004 + 60, B("\x20\x64") + hi + B("\xa0\x64"), {10, 1234.5f, -10}}}, 0,
       {"degC", "W/m2", "%"}, "id=-1, first=0"},
      row("campbell_binary", {5}, B("\x20\x64"), {kMissing}, 0),  // an id wanted, no start
      row("gps", {}, gga, {48.1173f, 11.516667f, 545.4f, 1, 8, 0.9f}, 1e-5f),
      row("gps", {}, "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*48", {M, M, M, M, M, M}, 0),
      row("gps", {}, "$GNGGA,123519,4807.038,N,01131.000,E,0,03,,,M,,M,,*4F\r\n", {M, M, M, 0, 3, M}, 0),  // no fix
      row("gps", {"RMC"}, rmc, {48.1173f, -11.516667f, M, 1, M, M}, 1e-5f),
      row("gps_date", {}, "$GPZDA,172809.456,12,07,1996,00,00*57\r\n", {1996, 7, 12, 62889.456f, 0.5f}, 1e-3f, zda - 0.5),
      row("gps_date", {}, "$GPZDA,172809.456,12,13,1996,00,00*52\r\n", {M, M, M, M, M}, 0),  // month 13
      row("gps_date", {"RMC"}, rmc, {1994, 3, 23, 45319, -1}, 1e-3f, 764426119 + 1),
      row("gps_date", {"RMC"}, "$GPRMC,123519,V,,,,,,,230394,,*33\r\n", {M, M, M, M, M}, 0),
  });
}

TEST(Instruments, SonicRecords) {
  ScratchSite site;
  const std::string level = calFile(site, "level.cal", "2004 1 00:00 0 0 0 0 0 0\n");
  const std::string axes = calFile(site, "axes.cal", "2004 1 00:00 0 0 0 0 0 0  0 1 0 1 0 0 0 0 -1\n");
  const std::string gill = B("\xba\xba\0\0\0\x64\xff\x9c\0\x0a\x86\xa0\x2b");  // u 1, v -1, w 0.1, c 344.64
  const float ts = sonic_temperature(344.64f), M = kMissing;
  const std::string metek = "M:x =    10 y =    -3 z =    -1 t =  2203\r\n";
  runCases({
      row("sonic_gill", {level, 1200, 4}, gill, {1, -1, 0.1f, ts, 0, 0, 0, 0, 0}, 1e-5f),
      row("sonic_gill", {level, 1200, 4, "flag", 0, "none", "left"}, gill.substr(2), {1, 1, 0.1f, ts, 0, 0, 0, 0, 0}, 1e-5f),
      row("sonic_gill", {level, 1200, 4}, gill.substr(0, 12) + "\x2a", {M, M, M, M, 2, 2, 2, 2, 65536}, 0),
      row("sonic_gill", {level, 1200, 4, "despike", 1, "C"},  // no speed of sound: the temperature field, 22.00 degC
          B("\xba\xba\x01\x02\0\x64\xff\x9c\0\x0a\0\0\x08\x98\x9e"), {1, -1, 0.1f, 22, 0, 0, 0, 0, 258}, 1e-5f),
      row("sonic_gill", {level, 1200, 4}, gill, {M, M, M, M, M, M, M, M, M}, 0, k2004 - 1),  // before the first record
      row("sonic_gill_transit", {axes, 1200, 4}, gill, {-1, 1, -0.1f, ts, 0, 0, 0, 0, 0}, 1e-5f),
      row("solent_tv", {0}, B("\0\0\0\0\0\0\0\0\x84\xd0\x54"), {sonic_temperature(340)}, 1e-5f),
      row("solent_tv", {}, gill.substr(0, 12) + "\x2a", {M}, 0),
      row("sonic_metek", {level, 1200, 4}, metek, {0.1f, 0.03f, -0.01f, 22.03f, 0, 0, 0, 0, 0}, 1e-5f),
      row("sonic_metek", {level, 1200, 4, "despike", "right"}, "H" + metek.substr(1), {0.1f, -0.03f, -0.01f, 22.03f, 0, 0, 0, 0, 1}, 1e-5f),
      row("sonic_metek", {level, 1200, 4}, "D:x = 10 y = -3q z = -1 t =", {0.1f, M, -0.01f, M, 0, 2, 0, 2, 2}, 1e-5f),
  });
  EXPECT_NEAR(ts, 21.81f, 0.01f);
}

TEST(Instruments, HumidityFromTheProbesTemperature) {
  const float M = kMissing;
  sharedValues[SHARED_PRESSURE] = 1000;
  runCases({
      row("t_vaisala", {20, 0, 0}, 0.0f, {20}, 1e-5f),  // the probe's temperature for the rows below
      row("h2o_vaisala", {}, 0.5f, {50, 8.64264f, 7.35827f, 9.27096f}, 1e-3f),
      row("h2o_vaisala", {100, 0, 0}, 1.02f, {100, 17.2853f, 14.8927f, 20}, 1e-3f),  // a little above saturation: clamped
      row("h2o_vaisala", {}, 1.1f, {110, M, M, M}, 1e-3f),
      row("h2o_vaisala", {}, 0.0f, {0, M, M, M}, 1e-3f),
      row("h2o_vaisala", {100, 0, 3}, 0.5f, {50, M, M, M}, 1e-3f),  // no such t_vaisala use
  });
  sharedValues[SHARED_PRESSURE] = M;
  runCases({row("h2o_vaisala", {}, 0.5f, {50, 8.64264f, M, 9.27096f}, 1e-3f)});
}

TEST(Instruments, GasRainRadiationAndModes) {
  const float M = kMissing;
  const std::string labelled = "(Data (Ndx 1545)(DiagVal 250)(CO2Raw 8.9e-2)(CO2D 3.2183277e1)(H2ORaw 5.6e-2)"
                               "(H2OD 1.9687008e2)(Temp 2.4227569e1)(Pres 9.8640356e1)(Aux 0)(Cooler 1.57))\n";
  const std::string fields = "Ndx,DiagVal,CO2D,H2OD,Temp,Pres";
  ScratchSite site;
  const std::string co2 = calFile(site, "co2.cal", "2004 1 1 00:00:00 2 100\n2004 1 1 10:00:00 4 200\n");
  // Krypton hygrometer signals carried in records: rho = (lnV0 - ln V) / (x kw).
  const std::string kh = calFile(site, "kh2o.cal", "2004 1 1 00:00:00 1.3 0.145 1.62\n");
  auto rho = [](double v) { return static_cast<float>((1.62 - log(v)) / (1.3 * 0.145)); };
  runCases({
      row("licor_7500", {"labels"}, labelled, {32.183277f, 196.87008f, 24.227569f, 98.640356f, 250, 10}, 1e-4f),
      row("licor_7500", {fields}, "1545\t254\t15.1234\t354.123\t24.5\t101.3\r\n", {15.1234f, 354.123f, 24.5f, 101.3f, 254, 14}, 1e-4f),
      row("licor_7500", {fields}, "1545\t254\t\t354.123\tx\n", {M, 354.123f, M, M, 254, 14}, 1e-4f),  // empty, garbled, absent
      row("rain_sti700", {0, 1, 6}, "R- .118 000.709 01** 4999 0044 0062 +25\r\n", {0.118f, 0.709f, 25}, 1e-6f),
      row("rain_sti700", {}, "  0.000 012.500 00** 4999 0044 0062 +25", {0, 12.5f}, 1e-6f),  // no weather, no code
      row("rain_sti700", {0, 2}, "ER .118 000.709 01**", {M, M}, 0),
      row("rain_sti700", {0, 2}, "R .118 000.709 01**", {0.118f, M}, 1e-6f),
      // Net radiation and wind speed as big-endian floats: 2 and 5, -1 and 5, 2 and -1, 0 and -2.
      row("rad_net_Q7", {10, 12, "big", 0, 4}, B("\x40\0\0\0\x40\xa0\0\0"), {21.23827f, 20}, 1e-4f),
      row("rad_net_Q7", {10, 12, "big", 0, 4}, B("\xbf\x80\0\0\x40\xa0\0\0"), {-12.075f, -12}, 1e-4f),
      row("rad_net_Q7", {10, 12, "big", 0, 4}, B("\x40\0\0\0\xbf\x80\0\0"), {M, 20}, 1e-4f),  // no usable wind
      row("rad_net_Q7", {10, 12, "little", 0, -1, 0}, std::string("\0\0\0\x40", 4), {20, 20}, 1e-4f),
      row("rad_net_Q7", {10, 12, "big", 4, -2}, B("\0\0\0\0\xc0\0\0\0"), {-24, -24}, 1e-4f),
      row("teco", {500, 10}, 5.0f, {250}, 1e-4f),
      row("teco", {500, 10, 2, "ppbv"}, 10.6f, {M}, 0),
      {"licor_co2", {co2}, {{k2004 + 5 * 3600, 2.0f, {156}}, {k2004 - 1, 2.0f, {M}}}, 1e-3f, {"umol/mol"}},
      row("licor_mode", {0, -0.5, 0.5, 0, 1, 0.5, 1.5, 2}, 0.0f, {0}, 0),
      row("sf6_mode", {0, -0.5, 0.5, 0, 1, 0.5, 1.5, 2}, 1.0f, {M}, 0),  // settling
      row("q_kh2o_serial", {kh, "big", 2, "float"}, B("xx\x3f\xfc\x07\x89"), {rho(1.96898)}, 1e-4f),  // 1.96898 after two bytes
      row("q_kh2o_serial", {kh, "big", 0, "short", 0.001}, B("\x07\xb1"), {rho(1.969)}, 1e-4f),
      row("q_kh2o_serial", {kh, "little", 0, "ushort", 0.001}, B("\0\0"), {M}, 0),  // no signal
      row("q_kh2o_serializer", {kh, "big", 0, 0, 5, 12}, B("\x06\x4d"), {rho(1613 * 5 / 4096.0)}, 1e-4f),
      row("q_kh2o_serializer", {kh, "big", 0, 0, 5, 12, 2, -1}, B("\x06\x4d"), {rho((1613 * 5 / 4096.0 + 1) / 2)}, 1e-4f),
      row("q_kh2o_serializer", {kh, "big", 0, 0, 5, 12}, B("\x0f\xff"), {M}, 0),  // at the rail
      row("q_kh2o_serializer", {kh, "big", 0, 1, 5, 12}, B("\xf8\x00"), {M}, 0),  // -2048: the signed rail
  });
}
