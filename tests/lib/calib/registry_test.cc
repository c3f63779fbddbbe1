// The registry and the CalibInfo record.
#include <string.h>

#include <string>
#include <vector>

#include "calib_test_util.h"
#include "calib/conversions.h"

namespace {

calib_any_t any(calib_func_t f) { return reinterpret_cast<calib_any_t>(f); }
calib_any_t any(calib_init_t f) { return reinterpret_cast<calib_any_t>(f); }

}  // namespace

TEST(Registry, LookupByExactName) {
  EXPECT_EQ(any(calib_function("linear")), any(&linear));
  EXPECT_EQ(any(calib_function("sonic_csat3")), any(&sonic_csat3));
  EXPECT_EQ(any(calib_function("linear_init")), any(&linear_init));  // init functions are entries too
  EXPECT_EQ(any(init_function("linear")), any(&linear_init));
  EXPECT_EQ(any(init_function("td_linear_interp")), any(&td_linear_interp_init));
  // A prefix is not a name, case matters, q_kh2o is not provided by this library.
  for (const char* name : {"sonic", "Linear", "q_kh2o", static_cast<const char*>(nullptr)})
    EXPECT_EQ(calib_function(name), nullptr) << (name ? name : "null");
  for (const char* name : {"linear_init", "analog_sonic", static_cast<const char*>(nullptr)})
    EXPECT_EQ(init_function(name), nullptr) << (name ? name : "null");
}

TEST(Registry, TablePairsEveryConversionWithItsInitInRegistryOrder) {
  // The registry's order of names, restricted to those this library builds.
  const std::vector<std::string> order = {
      "baro_GENERIC", "baro_PARA", "baro_vais", "diff_float", "dual_uv", "fis_linear", "linear",
      "mode", "plinear", "poly", "power", "sonic_csat3", "status", "t_AIR", "t_vaisala",
      "td_linear", "td_linear_interp", "td_linear_dt", "thermistor", "wind_gill", "wind_rmy"};
  size_t n = 0;
  for (; function_list[n].name; ++n) ASSERT_NE(function_list[n].func, nullptr) << function_list[n].name;
  EXPECT_EQ(function_list[n].func, nullptr);
  ASSERT_EQ(n, 2 * order.size());
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(function_list[2 * i].name, order[i]);
    EXPECT_EQ(function_list[2 * i + 1].name, order[i] + "_init");
    // init_function finds the entry that follows its conversion.
    EXPECT_EQ(any(init_function(order[i].c_str())), function_list[2 * i + 1].func);
  }
}

TEST(CalibInfo, UnitsAndSummary) {
  CalibInfo* info = AllocCalibInfo(2, "mod 1.0");
  EXPECT_EQ(info->nout, 2);
  EXPECT_EQ(info->iout, 0);
  EXPECT_STREQ(info->version, "mod 1.0");
  EXPECT_EQ(info->paramString, nullptr);
  EXPECT_EQ(info->units[0], nullptr);

  CalibInfoSetUnits(info, 3, "m/s", "degC", "mb");  // the surplus is dropped
  EXPECT_EQ(info->iout, 2);
  EXPECT_STREQ(info->units[0], "m/s");
  EXPECT_STREQ(info->units[1], "degC");
  CalibInfoAppendUnits(info, "extra");
  EXPECT_EQ(info->iout, 2);

  CalibInfoSetParamString(info, "slope=%.2f, intcpt=%.2f", 2.0, -1.25);
  EXPECT_STREQ(info->paramString, "slope=2.00, intcpt=-1.25");
  CalibInfoSetParamString(info, "%s", std::string(600, 'x').c_str());
  EXPECT_EQ(strlen(info->paramString), 511u);
  FreeCalibInfo(info);

  CalibInfo* none = AllocCalibInfo(0, "v");
  CalibInfoSetUnits(none, 1, "m");
  EXPECT_EQ(none->iout, 0);
  FreeCalibInfo(none);
}

TEST(RegistryDeathTest, UseIndexOutsideItsTable) {
  const Params p{1, 0};
  EXPECT_EXIT(linear_init(3, 3, p.get(), p.size(), 1), testing::ExitedWithCode(1),
              "Error: linear calibration function error\nUse index 3 is outside 0 .. 2");
}
