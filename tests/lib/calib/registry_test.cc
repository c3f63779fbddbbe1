// The registry, the CalibInfo record, and the faults every init function
// reports before the program stops.
#include <string.h>

#include "calib/conversions.h"
#include "calib_test_util.h"
#include "support/reported.h"

namespace {
calib_any_t any(calib_func_t f) { return reinterpret_cast<calib_any_t>(f); }
calib_any_t any(calib_init_t f) { return reinterpret_cast<calib_any_t>(f); }
}  // namespace

TEST(Registry, LookupByExactName) {
  // A name, and what calib_function and init_function find for it.
  const struct {
    const char* name;
    calib_any_t func, init;
  } cases[] = {
      {"linear", any(&linear), any(&linear_init)}, {"linear_init", any(&linear_init), nullptr},  // an entry too
      {"analog_sonic", nullptr, nullptr}, {"sonic", nullptr, nullptr}, {"Linear", nullptr, nullptr},
      {"linear ", nullptr, nullptr}, {"q_kh2o_serial_x", nullptr, nullptr}, {"", nullptr, nullptr},
      {nullptr, nullptr, nullptr}};
  for (const auto& c : cases) {
    EXPECT_EQ(any(calib_function(c.name)), c.func) << (c.name ? c.name : "null");
    EXPECT_EQ(any(init_function(c.name)), c.init) << (c.name ? c.name : "null");
  }
  // Each conversion is followed by its own init function; a null pair ends the table.
  size_t n = 0;
  for (; function_list[n].name; n += 2) {
    ASSERT_NE(function_list[n + 1].name, nullptr);
    EXPECT_EQ(function_list[n + 1].name, std::string(function_list[n].name) + "_init");
    EXPECT_EQ(any(init_function(function_list[n].name)), function_list[n + 1].func);
  }
  EXPECT_EQ(function_list[n].func, nullptr);
  EXPECT_EQ(n, 92u);
}

TEST(CalibInfo, SurplusUnitsAndLongSummaries) {
  CalibInfo* info = AllocCalibInfo(2, "mod 1.0");
  CalibInfoSetUnits(info, 3, "m/s", "degC", "mb");  // the surplus is dropped
  EXPECT_EQ(std::vector<std::string>(info->units, info->units + info->iout), (std::vector<std::string>{"m/s", "degC"}));
  CalibInfoSetParamString(info, "%s", std::string(600, 'x').c_str());
  EXPECT_EQ(strlen(info->paramString), 511u);
  FreeCalibInfo(info);
  info = AllocCalibInfo(0, "v");
  CalibInfoSetUnits(info, 1, "m");
  EXPECT_EQ(info->iout, 0);
  FreeCalibInfo(info);
}

// Every fault ends the program with status 1 after the module's report: each
// family's own checks, and each form of the shared parameter-count report once
// (a calibration file's own faults are in places_test.cc).
TEST(InitFaults, ReportedByEachInitFunction) {
  ScratchSite site;
  calFile(site, "one.cal", "2004 1 00:00 1\n");
  calFile(site, "empty.cal", "# nothing\n");
  calFile(site, "shift.cal", "2004 1 00:00 0 0 0 0 0 0 12\n");
  calFile(site, "six.cal", "2004 1 00:00 0 0 0 0 0 0\n");
  auto E = [](const char* module) { return "Error: " + std::string(module) + " calibration function error\n"; };
  // The last place looked in, then the name as the configuration gave it.
  const std::string missing = site.root() + "/cal_files/nosuch.cal: No such file or directory\nnosuch.cal: No such file or directory\n";
  const struct {
    const char* name;
    Params params;
    std::string message;
    int nout, ichan = 0;
  } cases[] = {
      {"linear", {1}, E("linear") + "Invalid number of parameters (1), should be 2 or 3\n", 1},
      {"linear", {1, 0}, E("linear") + "Use index 1 is outside 0 .. 0\n", 1, 1},
      {"plinear", {1, 2, "mb", 3, 4}, E("plinear") + "Invalid number of parameters (5), should be 2 to 4\n", 1},
      {"t_AIR", {1}, E("t_AIR") + "Invalid number of parameters, should be 2\n", 1},
      {"td_linear", {"nosuch.cal"}, missing + E("td_linear") + "Cannot read calibration file nosuch.cal\n", 1},
      {"td_linear_dt", {"one.cal"}, E("td_linear_dt") + "Calibration file one.cal has 1 values per record, should have 3\n", 1},
      {"fis_linear", {"one.cal"}, E("fis_linear") + "Calibration file one.cal has 1 values per record, should have 4\n", 1},
      {"td_linear_interp", {"empty.cal"}, E("td_linear_interp") + "Calibration file empty.cal holds no record\n", 1},
      {"poly", {"V", 1, 1, 1, 1, 1, 1, 1}, E("poly") + "Assertion order[ichan] < 6 failed: 7 coefficients given, at most 6\n", 1},
      {"diff_float", {1, 2, 3}, "Wrong number of parameters for diff cal function\n", 1},
      {"mode", {1, 1, 1, 1, 1}, "Illegal number of parameters(5) to mode, should be multiple of 4\n", 1},
      {"status", {1, 2}, E("status") + "Invalid number of parameters (2), should be 0 or 1\n", 1},
      {"q_kh2o", {"nosuch.cal"}, missing + E("q_kh2o") + "Cannot open calibration file nosuch.cal\n", 1},
      {"serial_float", {"middle"}, E("serial_float") + "Byte order \"middle\" is neither \"big\" nor \"little\"\n", 1},
      {"serial_short", {"big", 250, 4}, E("serial_short") + "2 fields from byte 250 every 4 bytes do not fit in a record of 255 bytes\n", 2},
      {"serial_ushort", {"little", 0, 1}, E("serial_ushort") + "The stride 1 is less than a field's 2 bytes\n", 1},
      {"serial_float_linear", {"big", 0, 4, 1}, E("serial_float_linear") + "Invalid number of parameters (4), should be 5 or 6\n", 1},
      {"wind_gill", {"one.cal", 1}, E("wind_gill") + "Invalid number of outputs (2), should be 4\n", 2},
      {"sonic_csat3", {"one.cal"}, E("sonic_csat3") + "Invalid number of parameters (1), should be 3 to 5\n", 9},
      {"sonic_csat3", {"one.cal", 1200, 4}, E("sonic_csat3") + "Invalid number of outputs (8), should be 9\n", 8},
      {"sonic_csat3", {"one.cal", 1200, 4}, E("sonic_csat3") + "Calibration file one.cal has 1 values per record, should have 7\n", 9},
      {"sonic_csat3", {"shift.cal", 1200, 4}, E("sonic_csat3") + "Record shift 12 in shift.cal is not a whole number from 0 to 9\n", 9},
      {"camp_cr10", {1, 0, "degC"}, E("camp_cr10") + "Invalid number of parameters (3), should be 0 to 2, or 4 with units\n", 2},
      {"sonic_gill", {"six.cal", 1200, 4, "despike", 2}, E("sonic_gill") + "The header switch 2 is neither 0 nor 1\n", 9},
      {"sonic_gill_transit", {"six.cal", 1200, 4}, E("sonic_gill_transit") + "Calibration file six.cal has 6 values per record, should have 15\n", 9},
      {"sonic_metek", {"six.cal", 1200, 4}, E("sonic_metek") + "Invalid number of outputs (4), should be 9\n", 4},
      {"gps", {"GSV"}, E("gps") + "Sentence \"GSV\" is neither \"GGA\" nor \"RMC\"\n", 6},
      {"gps_date", {}, E("gps_date") + "Invalid number of outputs (3), should be 5\n", 3},
      {"rain_sti700", {0, 1.5}, E("rain_sti700") + "Field 1.5 is not a whole number from 0 to 15\n", 2},
      {"rad_net_Q7", {10, 12, "big", 0, -1}, E("rad_net_Q7") + "A fixed wind speed is given with wind source -1, and only then\n", 2},
      {"teco", {500, 0}, E("teco") + "The full-scale voltage 0 is not above 0\n", 1},
      {"licor_mode", {1, 2, 3}, "Illegal number of parameters(3) to licor_mode, should be multiple of 4\n", 1},
      {"q_kh2o_serial", {"kh2o.cal", "big", 0, "double"}, E("q_kh2o_serial") + "Field type \"double\" is none of \"float\", \"short\" and \"ushort\"\n", 1},
      {"q_kh2o_serializer", {"kh2o.cal", "big", 0, 0, 5, 24}, E("q_kh2o_serializer") + "The converter's bit count 24 is not a whole number from 2 to 16\n", 1},
      {"camp_21x_bin", {600}, E("camp_21x_bin") + "Array id 600 is not -1 (any) or a whole number from 0 to 511\n", 1},
  };
  for (const auto& c : cases)
    EXPECT_EQ(heron_test::reported([&] { init(c.name, c.params, c.nout, c.ichan); }), c.message + "[exit 1]") << c.name;
}
