// The registry of data ids: every variable name of the site (did.config)
// with its index number and the time lag that applies to it.  The file
// syntax is described in docs/did_config.md.
//
// Read whole at construction; every fault throws BadConfigurationException
// ("<file>:<line>: <what>", or the wrapped I/O error).
#ifndef HERON_CALCONF_HERONDATAIDS_H
#define HERON_CALCONF_HERONDATAIDS_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "calconf/SidList.h"

struct HeronDataId {
  short Index() const { return index; }

  std::string name;
  short index;
  PhaseEntry* phase;  // its time lag; null when none applies
  std::string units;  // filled in when its calibration function is set up
  double deltat;      // seconds between samples; 0 until known
};

class HeronDataIds {
 public:
  // Reads the did.config file; an id without a lag of its own takes the
  // phase entry of sensors that covers it (SidList::phase_from_did).
  explicit HeronDataIds(const SidList& sids, const char* didConfig = "$HERON/projects/$PROJECT/$OPS/did.config");
  HeronDataIds(const HeronDataIds&) = delete;
  HeronDataIds& operator=(const HeronDataIds&) = delete;

  // The id of that name.  An implied "volts.N.module" id is created on the
  // first look-up, with the next index above all others.  Null when neither.
  HeronDataId* operator[](const char* name);
  // The id with that index, or null.
  HeronDataId* byIndex(int index) const;

  // All ids, in file order, implied ones after them.
  const std::vector<std::unique_ptr<HeronDataId>>& all() const { return ids_; }

 private:
  HeronDataId* add(std::string name, int index, PhaseEntry* phase);

  std::vector<std::unique_ptr<HeronDataId>> ids_;
  std::vector<std::unique_ptr<PhaseEntry>> ownLags_;  // lags that did.config gives itself
  std::map<std::string, HeronDataId*> byName_;
  std::map<int, HeronDataId*> byIndex_;
};

#endif
