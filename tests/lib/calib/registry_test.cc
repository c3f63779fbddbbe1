// The registry and the CalibInfo record.
#include <string.h>

#include <string>
#include <vector>

#include "calib_test_util.h"
#include "conversions.h"

namespace {

calib_any_t any(calib_func_t f) { return reinterpret_cast<calib_any_t>(f); }
calib_any_t any(calib_init_t f) { return reinterpret_cast<calib_any_t>(f); }

}  // namespace

TEST(Registry, LookupByExactName) {
  EXPECT_EQ(any(calib_function("linear")), any(&linear));
  EXPECT_EQ(any(calib_function("sonic_csat3")), any(&sonic_csat3));
  // Init functions are entries of their own.
  EXPECT_EQ(any(calib_function("linear_init")), any(&linear_init));
  EXPECT_EQ(calib_function("sonic"), nullptr);      // a prefix is not a name
  EXPECT_EQ(calib_function("Linear"), nullptr);     // case matters
  EXPECT_EQ(calib_function("q_kh2o"), nullptr);     // not provided by this library
  EXPECT_EQ(calib_function(nullptr), nullptr);

  EXPECT_EQ(any(init_function("linear")), any(&linear_init));
  EXPECT_EQ(any(init_function("td_linear_interp")), any(&td_linear_interp_init));
  EXPECT_EQ(init_function("linear_init"), nullptr);
  EXPECT_EQ(init_function("analog_sonic"), nullptr);
  EXPECT_EQ(init_function(nullptr), nullptr);
}

TEST(Registry, TablePairsEveryConversionWithItsInitInRegistryOrder) {
  // The registry's order of names, restricted to those this library builds.
  const std::vector<std::string> order = {
      "baro_GENERIC", "baro_PARA", "baro_vais", "diff_float", "dual_uv", "fis_linear", "linear",
      "mode", "plinear", "poly", "power", "sonic_csat3", "status", "t_AIR", "t_vaisala",
      "td_linear", "td_linear_interp", "td_linear_dt", "thermistor", "wind_gill", "wind_rmy"};
  size_t n = 0;
  while (function_list[n].name) {
    ASSERT_NE(function_list[n].func, nullptr) << function_list[n].name;
    ++n;
  }
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
  Params p;
  p.num(1).num(0);
  EXPECT_EXIT(linear_init(3, 3, p.get(), p.size(), 1), testing::ExitedWithCode(1),
              "Error: linear calibration function error\nUse index 3 is outside 0 .. 2");
}
