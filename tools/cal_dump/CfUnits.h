// Units as the NetCDF readers will read them.  Every unit written into a
// NetCDF file is read back through UDUNITS-2, the unit library of the CF
// tools: a site's spelling that means something else there ("mb" is a
// millibarn, an area) is written in the spelling that means what the site
// meant ("hPa"); a unit UDUNITS-2 cannot read is written as given, with one
// warning per unknown word.  The unit database is read once, when a Units is
// made, and freed with it.
#ifndef HERON_TOOLS_CAL_DUMP_CFUNITS_H
#define HERON_TOOLS_CAL_DUMP_CFUNITS_H

#include <stdio.h>

#include <set>
#include <string>

struct ut_system;

namespace heron {

class Units {
 public:
  // Reads the unit database (UDUNITS2_XML_PATH, or the one installed);
  // throws std::runtime_error naming the database when it cannot.
  Units();
  ~Units();
  Units(const Units&) = delete;
  Units& operator=(const Units&) = delete;

  // The site's spelling with each word that means something else to
  // UDUNITS-2 replaced ("mb" -> "hPa", in "(mb)^2" and "m/s mb" too).
  static std::string respelled(const std::string& text);

  // Whether UDUNITS-2 reads text as a unit.
  bool known(const std::string& text) const;
  // Whether text is a unit of the same kind as reference raised to power
  // (hPa and Pa, "(degC)^2" and K with power 2).
  bool convertible(const std::string& text, const char* reference, int power = 1) const;

  // The spelling to write for the unit text of variable var: respelled,
  // and when UDUNITS-2 still cannot read it, text as given with a warning
  // on warnings, unless every word of it UDUNITS-2 cannot read has been
  // warned about before ("xyzzy", then "(xyzzy)^2" is not reported).
  std::string written(const std::string& text, const std::string& var, FILE* warnings);

 private:
  ut_system* system_;
  std::set<std::string> warned_;
};

}  // namespace heron

#endif
