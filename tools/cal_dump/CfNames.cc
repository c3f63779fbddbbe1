#include "CfNames.h"

#include <ctype.h>

#include <set>

namespace heron {

namespace {

// A sonic's u and v lie on the site's axes (its calibration file's
// orientation), which nothing says are east and north: they carry no
// standard name.  Its w is the level frame's vertical once the tilt is
// taken out.  Rows of one output word are tried in order; the first one
// gives the long-name words.
const std::vector<Quantity> kQuantities = {
    {"t", "air temperature", "K", "air_temperature"},
    {"p", "air pressure", "Pa", "air_pressure"},
    {"rh", "relative humidity", "1", "relative_humidity"},
    {"q", "water vapour", "kg/m^3", "mass_concentration_of_water_vapor_in_air"},
    {"q", "water vapour", "1", "specific_humidity"},
    {"h2o", "water vapour", "kg/m^3", "mass_concentration_of_water_vapor_in_air"},
    {"co2", "carbon dioxide", "1", "mole_fraction_of_carbon_dioxide_in_air"},
    {"co2", "carbon dioxide", "kg/m^3", "mass_concentration_of_carbon_dioxide_in_air"},
    {"w", "upward air velocity", "m/s", "upward_air_velocity"},
    {"spd", "wind speed", "m/s", "wind_speed"},
    {"dir", "wind direction (from)", "degree", "wind_from_direction"},
    {"u", "wind along the site's x axis", nullptr, nullptr},
    {"v", "wind along the site's y axis", nullptr, nullptr},
    {"tc", "sonic temperature", nullptr, nullptr},
    {"diag", "diagnostic flags", nullptr, nullptr},
    {"agc", "signal strength", nullptr, nullptr},
    {"batt", "battery voltage", nullptr, nullptr},
    {"panel", "logger panel temperature", nullptr, nullptr},
};

bool isAxisName(const std::string& name) {
  std::string rest = name;
  const std::string bounds = "_bnds";
  if (rest.size() > bounds.size() && rest.compare(rest.size() - bounds.size(), bounds.size(), bounds) == 0)
    rest.resize(rest.size() - bounds.size());
  if (rest == "time" || name == "nv") return true;
  if (rest.compare(0, 5, "time_") != 0 || rest.size() == 5) return false;
  for (size_t i = 5; i < rest.size(); ++i)
    if (!isdigit(static_cast<unsigned char>(rest[i]))) return false;
  return true;
}

std::string outputWord(const std::string& id) { return id.substr(0, id.find('.')); }

}  // namespace

const std::vector<Quantity>& knownQuantities() { return kQuantities; }

std::vector<std::string> netcdfNames(const std::vector<std::string>& names) {
  std::vector<std::string> out;
  std::set<std::string> taken;
  for (const std::string& name : names) {
    std::string n = name;
    for (char& c : n)
      if (!isalnum(static_cast<unsigned char>(c)) && c != '_') c = '_';
    if (n.empty() || !isalpha(static_cast<unsigned char>(n[0]))) n = "v_" + n;
    if (isAxisName(n)) n += "_var";
    std::string unique = n;
    for (int k = 2; taken.count(unique) > 0; ++k) unique = n + "_" + std::to_string(k);
    taken.insert(unique);
    out.push_back(unique);
  }
  return out;
}

std::string longNameOf(const std::string& id) {
  const size_t dot = id.find('.');
  const std::string output = outputWord(id), sensor = dot == std::string::npos ? "" : id.substr(dot + 1);
  for (const Quantity& q : kQuantities)
    if (output == q.output) return sensor.empty() ? q.words : std::string(q.words) + " (" + sensor + ")";
  return sensor.empty() ? id : "output " + output + " of sensor " + sensor;
}

std::string standardNameOf(const std::string& ids, const std::string& units, const std::string& cellMethod,
                           const UnitTest& fits) {
  if (ids.empty() || ids.find(' ') != std::string::npos) return "";
  if (cellMethod == "time: sum") return "number_of_observations";
  if (units.empty()) return "";
  const int power = cellMethod == "time: variance" ? 2 : 1;
  if (power == 1 && !cellMethod.empty() && cellMethod != "time: mean") return "";
  const std::string output = outputWord(ids);
  for (const Quantity& q : kQuantities)
    if (output == q.output && q.standardName != nullptr && fits(units, q.unit, power)) return q.standardName;
  return "";
}

}  // namespace heron
