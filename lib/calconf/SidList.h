// The sensor list of prep.config: which data ids each sensor produces, on
// which module channel, through which calibration function with which
// parameters, at what rate and with what time lags; and the phase entries,
// the time lags and filters of data ids.  The file syntax is described in
// docs/prep_config.md.
//
// A SidList reads its file whole at construction.  Every fault throws
// BadConfigurationException: "<file>:<line>: <what>" for the contents, the
// wrapped I/O error for a file that cannot be opened.
#ifndef HERON_CALCONF_SIDLIST_H
#define HERON_CALCONF_SIDLIST_H

#include <memory>
#include <string>
#include <vector>

#include "calconf/Lag.h"
#include "calib/calib_func.h"

// Data-id names are a prefix, a dot and the root name ("u.wind").
std::string DidNameOf(const std::string& prefix, const std::string& root);

// One sensor; not copyable, since calib_params point into it.
struct SidEntry {
  SidEntry() = default;
  SidEntry(const SidEntry&) = delete;
  SidEntry& operator=(const SidEntry&) = delete;

  // Position of didName among this sensor's data ids, or -1.
  int WhichDid(const char* didName) const;
  // The data-id name of output i.
  std::string DidName(int i) const { return DidNameOf(prefixes[i], root_name); }
  float GetLag(double t) { return lag.GetLag(t); }
  bool NonZeroLag() const { return lag.NonZero(); }

  // Takes over the parameters: numbers and texts by kind, in file order.
  void SetCalibParams(std::vector<param_type> types, std::vector<double> numbers, std::vector<std::string> texts);

  int n_calib_params() const { return static_cast<int>(calib_params.size()); }
  int n_prefixes() const { return static_cast<int>(prefixes.size()); }
  int n_limits() const { return static_cast<int>(max.size()); }

  std::string phaseFileName;
  std::vector<float> max, min;  // per output, in output order
  double rate = 0.0;            // samples per second
  float neglag = 0.0f, poslag = 0.0f;
  Lag lag;
  std::vector<void*> calib_params;  // each to a double or a C string, by calib_param_types
  std::string sid_tern;
  int sid_channel = -1;
  std::string index_didname;  // empty unless multiplexed
  std::string calib_name;
  std::vector<param_type> calib_param_types;
  std::string root_name;
  std::vector<std::string> prefixes;

 private:
  std::vector<double> numbers_;     // what calib_params point to
  std::vector<std::string> texts_;
};

// The time lag and filter of a set of data ids.
struct PhaseEntry {
  float GetLag(double t) { return lag.GetLag(t); }
  bool NonZeroLag() const { return lag.NonZero(); }
  int WhichDid(const char* didName) const;
  int n_prefixes() const { return static_cast<int>(prefixes.size()); }
  int n_filter_params() const { return static_cast<int>(filter_params.size()); }

  Lag lag;
  std::vector<double> filter_params;
  std::string root_name;
  std::string phase_file_name;
  std::vector<std::string> prefixes;
  std::string filter_name;
  int n_pfs = 0;  // sensor entries that name the same phase file
};

class SidList {
 public:
  // Fixed limits of one entry.
  static const int kMaxCalibParams = 64;
  static const int kMaxPrefixes = 32;
  static const int kMaxLimits = 32;
  static const int kMaxFilterParams = 16;

  explicit SidList(const char* prepConfig = "$HERON/projects/$PROJECT/$OPS/prep.config");

  // The first sensor producing didName, or null.
  SidEntry* sid_from_did(const char* didName) const;
  // Sensors wired to a module channel, in file order; the first or null.
  std::vector<SidEntry*> sids_from_tern_chan(const char* ternName, int channel) const;
  SidEntry* sid_from_tern_chan(const char* ternName, int channel) const;
  // The channels of a module that sensors use, ascending, each once.
  std::vector<int> TernChannels(const char* ternName) const;
  // The first phase entry covering didName, or null.
  PhaseEntry* phase_from_did(const char* didName) const;

  // The expanded name of the file read.
  const std::string& fileName() const { return _file; }

  std::vector<std::unique_ptr<SidEntry>> sids;
  std::vector<std::unique_ptr<PhaseEntry>> phases;

 private:
  std::string _file;
};

#endif
