// The names and descriptions of cal_dump's NetCDF variables.  A data id
// ("u.wind", "<output>.<sensor>") becomes a variable name that NetCDF and
// attribute access take as is (letters, digits, underscores, a letter
// first); its output word ("u", "t", "co2") finds, in one table of known
// quantities, the words of its long_name and, when the unit is of the
// right kind, its CF standard_name.  docs/netcdf.md shows the table.
#ifndef HERON_TOOLS_CAL_DUMP_CFNAMES_H
#define HERON_TOOLS_CAL_DUMP_CFNAMES_H

#include <functional>
#include <string>
#include <vector>

namespace heron {

// The NetCDF names of the given ones, in order: every character other than
// a letter, digit or underscore becomes an underscore, a name that does
// not start with a letter gets "v_" before it, one of the time axes'
// names (time, time_N, their _bnds, nv) gets "_var" after it, and a name
// met before gets "_2", "_3", ... after it.
std::vector<std::string> netcdfNames(const std::vector<std::string>& names);

// The long_name of a data id: the quantity's words and the sensor,
// "air temperature (met)", or "output x of sensor y" when the table does
// not know x.
std::string longNameOf(const std::string& id);

// Whether a unit text is of the kind of a reference unit raised to a power.
using UnitTest = std::function<bool(const std::string& units, const char* reference, int power)>;

// The CF standard_name of a variable: its data ids (one, or two for a
// covariance: none then), its units (as written), and its cell_methods.  A
// mean or a sample has its quantity's name when the unit fits, a variance
// too when the unit is that unit squared, a count (cell_methods
// "time: sum") is number_of_observations.  Empty when none fits.
std::string standardNameOf(const std::string& ids, const std::string& units, const std::string& cellMethod,
                           const UnitTest& fits);

// The rows of the table: output word, long-name words, reference unit and
// standard name (both null for a quantity CF names not, or not in the frame
// the site gives).
struct Quantity {
  const char* output;
  const char* words;
  const char* unit;
  const char* standardName;
};
const std::vector<Quantity>& knownQuantities();

}  // namespace heron

#endif
