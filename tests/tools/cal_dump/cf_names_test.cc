// The NetCDF variables' names, standard names, long names and units, in
// memory, with the real unit database.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "CfNames.h"
#include "CfUnits.h"
#include "IntervalStats.h"

namespace {

TEST(CfNames, VariableNames) {
  const struct {
    std::vector<std::string> in, out;
  } cases[] = {
      {{"u.wind", "cov.w.wind.u.wind", "t-2.x y"}, {"u_wind", "cov_w_wind_u_wind", "t_2_x_y"}},
      {{"a.b_c", "a_b.c", "a.b.c"}, {"a_b_c", "a_b_c_2", "a_b_c_3"}},
      {{"2x", "_y", ""}, {"v_2x", "v__y", "v_"}},
      {{"time", "time_3", "time_bnds", "time_12_bnds", "nv", "timer", "time_x"},
       {"time_var", "time_3_var", "time_bnds_var", "time_12_bnds_var", "nv_var", "timer", "time_x"}},
  };
  for (const auto& c : cases) EXPECT_EQ(heron::netcdfNames(c.in), c.out) << c.in[0];
}

TEST(CfNames, StandardNamesByOutputUnitAndCell) {
  heron::Units units;
  const auto fits = [&](const std::string& u, const char* ref, int power) { return units.convertible(u, ref, power); };
  const struct {
    const char *ids, *units, *cell, *want;
  } cases[] = {
      {"t.met", "degC", "", "air_temperature"},
      {"t.met", "degC", "time: mean", "air_temperature"},
      {"t.met", "(degC)^2", "time: variance", "air_temperature"},
      {"t.met", "degC", "time: variance", ""},  // a variance in the wrong unit
      {"t.met", "V", "", ""},
      {"t.met", "", "", ""},
      {"p.baro", "hPa", "", "air_pressure"},
      {"p.baro", "mb", "", ""},  // a millibarn, before respelling
      {"p.irga", "kPa", "time: mean", "air_pressure"},
      {"rh.hum", "%", "", "relative_humidity"},
      {"q.kh2o", "g/m^3", "", "mass_concentration_of_water_vapor_in_air"},
      {"q.x", "g/kg", "", "specific_humidity"},
      {"co2.irga", "mmol/m^3", "", ""},
      {"co2.x", "ppm", "", "mole_fraction_of_carbon_dioxide_in_air"},
      {"w.wind", "m/s", "", "upward_air_velocity"},
      {"u.wind", "m/s", "", ""},  // the site's axes are not east and north
      {"u.wind", "", "time: sum", "number_of_observations"},
      {"w.wind u.wind", "m/s m/s", "", ""},
      {"t.met", "degC", "time: maximum", ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(heron::standardNameOf(c.ids, c.units, c.cell, fits), c.want) << c.ids << " " << c.units << " " << c.cell;
}

TEST(CfUnits, SiteSpellingsAndUnknownUnits) {
  const struct {
    const char *given, *written;
  } cases[] = {
      {"mb", "hPa"}, {"(mb)^2", "(hPa)^2"}, {"m/s mb", "m/s hPa"}, {"mbar", "mbar"},
      {"deg", "degree"}, {"degC", "degC"}, {"g/m^3", "g/m^3"}, {"xyzzy", "xyzzy"},
  };
  heron::Units units;
  char* text = nullptr;
  size_t size = 0;
  FILE* warnings = open_memstream(&text, &size);
  ASSERT_NE(warnings, nullptr);
  for (const auto& c : cases) {
    EXPECT_EQ(units.written(c.given, "x.s", warnings), c.written) << c.given;
    EXPECT_EQ(units.written(c.given, "y.s", warnings), c.written) << c.given;
  }
  fclose(warnings);
  EXPECT_EQ(std::string(text), "cal_dump: unit \"xyzzy\" of x.s is not known to UDUNITS-2; written as given\n");
  free(text);
}

TEST(CfNames, LongNamesOfSamplesAndStatistics) {
  EXPECT_EQ(heron::longNameOf("t.met"), "air temperature (met)");
  EXPECT_EQ(heron::longNameOf("zz.logger"), "output zz of sensor logger");
  const std::vector<Column> columns = {{"t.met", "degC", "", "t.met", "air temperature (met)"},
                                       {"w.wind", "m/s", "", "w.wind", ""}};
  const struct {
    double seconds;
    std::vector<std::string> names;
  } cases[] = {
      {600,
       {"air temperature (met), 10-minute mean", "air temperature (met), 10-minute variance",
        "number of good values of air temperature (met) in each 10-minute interval", "w.wind, 10-minute mean",
        "w.wind, 10-minute variance", "number of good values of w.wind in each 10-minute interval",
        "covariance of w.wind and air temperature (met) in each 10-minute interval"}},
      {3600, {"air temperature (met), 1-hour mean"}},
      {90, {"air temperature (met), 90-second mean"}},
      {0.5, {"air temperature (met), 0.5-second mean"}},
      {0, {"air temperature (met), mean"}},
  };
  for (const auto& c : cases) {
    const std::vector<Column> stats = IntervalStats::statsColumns(columns, {{1, 0}}, c.seconds);
    for (size_t i = 0; i < c.names.size(); ++i) EXPECT_EQ(stats[i].longName, c.names[i]) << c.seconds;
  }
  const std::vector<Column> stats = IntervalStats::statsColumns(columns, {{1, 0}}, 600);
  std::vector<std::string> cells, ids;
  for (const Column& c : stats) cells.push_back(c.cellMethod), ids.push_back(c.id);
  EXPECT_EQ(cells, std::vector<std::string>({"time: mean", "time: variance", "time: sum", "time: mean",
                                             "time: variance", "time: sum", ""}));
  EXPECT_EQ(ids.back(), "w.wind t.met");
}

// docs/netcdf.md shows the table as it is.
TEST(CfNames, TheDocumentedTableIsTheTable) {
  std::ostringstream doc;
  doc << std::ifstream(HERON_SOURCE_DIR "/docs/netcdf.md").rdbuf();
  for (const heron::Quantity& q : heron::knownQuantities()) {
    const std::string row = std::string("| `") + q.output + "` | " + q.words + " | " + (q.unit ? q.unit : "") +
                            " | " + (q.standardName ? q.standardName : "") + " |";
    EXPECT_NE(doc.str().find(row), std::string::npos) << row;
  }
}

}  // namespace
