// The NetCDF variables' names, standard names and units, in memory, with
// the real unit database.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "CfNames.h"
#include "CfUnits.h"

namespace {

TEST(CfNames, VariableNames) {
  const std::vector<std::string> cases[][2] = {
      {{"u.wind", "cov.w.wind.u.wind", "t-2.x y"}, {"u_wind", "cov_w_wind_u_wind", "t_2_x_y"}},
      {{"a.b_c", "a_b.c", "a.b.c", "2x", ""}, {"a_b_c", "a_b_c_2", "a_b_c_3", "v_2x", "v_"}},
      {{"time", "time_3", "time_12_bnds", "nv", "timer", "time_x"},
       {"time_var", "time_3_var", "time_12_bnds_var", "nv_var", "timer", "time_x"}},
  };
  for (const auto& c : cases) EXPECT_EQ(heron::netcdfNames(c[0]), c[1]) << c[0][0];
}

TEST(CfNames, StandardNamesByOutputUnitAndCell) {
  heron::Units units;
  const auto fits = [&](const std::string& u, const char* ref, int power) { return units.convertible(u, ref, power); };
  const char* cases[][4] = {
      {"t.met", "degC", "time: mean", "air_temperature"},  {"t.met", "(degC)^2", "time: variance", "air_temperature"},
      {"t.met", "degC", "time: variance", ""},             {"t.met", "V", "", ""},
      {"t.met", "degC", "time: maximum", ""},              {"p.irga", "kPa", "", "air_pressure"},
      {"p.baro", "mb", "", ""},                            {"rh.hum", "%", "", "relative_humidity"},
      {"q.kh2o", "g/m^3", "", "mass_concentration_of_water_vapor_in_air"},
      {"q.x", "g/kg", "", "specific_humidity"},            {"co2.irga", "mmol/m^3", "", ""},
      {"co2.x", "ppm", "", "mole_fraction_of_carbon_dioxide_in_air"},
      {"w.wind", "m/s", "", "upward_air_velocity"},        {"u.wind", "m/s", "", ""},
      {"u.wind", "", "time: sum", "number_of_observations"}, {"w.wind u.wind", "m/s m/s", "", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(heron::standardNameOf(c[0], c[1], c[2], fits), c[3]) << c[0] << c[1] << c[2];
}

TEST(CfUnits, SiteSpellingsAndUnknownUnits) {
  const char* cases[][2] = {{"mb", "hPa"},      {"(mb)^2", "(hPa)^2"}, {"m/s mb", "m/s hPa"}, {"mbar", "mbar"},
                            {"deg", "degree"}, {"g/m^3", "g/m^3"},    {"xyzzy", "xyzzy"},       {"(xyzzy)^2", "(xyzzy)^2"},
                            {"m/s ^^", "m/s ^^"}};
  heron::Units units;
  char* text = nullptr;
  size_t size = 0;
  FILE* warnings = open_memstream(&text, &size);
  ASSERT_NE(warnings, nullptr);
  for (const auto& c : cases)
    for (const char* var : {"x.s", "y.s"}) EXPECT_EQ(units.written(c[0], var, warnings), c[1]) << c[0];
  fclose(warnings);
  EXPECT_EQ(std::string(text), "cal_dump: unit \"xyzzy\" of x.s is not known to UDUNITS-2; written as given\n"
                               "cal_dump: unit \"m/s ^^\" of x.s is not known to UDUNITS-2; written as given\n");
  free(text);
}

// docs/netcdf.md shows the table as it is.
TEST(CfNames, TheDocumentedTableIsTheTable) {
  std::ostringstream doc;
  doc << std::ifstream(HERON_SOURCE_DIR "/docs/netcdf.md").rdbuf();
  for (const heron::Quantity& q : heron::knownQuantities())
    EXPECT_NE(doc.str().find(std::string("| `") + q.output + "` | " + q.words + " | " + (q.unit ? q.unit : "") + " | " +
                             (q.standardName ? q.standardName : "") + " |"),
              std::string::npos)
        << q.output << " " << q.words;
}

}  // namespace
