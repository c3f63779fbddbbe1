// Asking the stations: the serial stations that ingest.conf gives this
// computer, and what each one's ingest server says through its
// station-at-a-glance procedure.  A server that cannot be reached, or that
// does not serve the station, is a view of state "down" or "unregistered"
// with the reason; asking never throws for it.  Each call waits at most the
// ingest servers' call time-out.
#ifndef HERON_STATUS_STATIONASK_H
#define HERON_STATUS_STATIONASK_H

#include <string>
#include <vector>

#include "status/StationView.h"

namespace heron {

struct StationEntry {
  std::string name, port;  // the port as ingest.conf has it; empty: unknown
};

// The serial stations of the table that this computer serves, by its full
// or short name or as a station of every host ("-"), in the table's order.
// Throws what reading the table throws.
std::vector<StationEntry> ourStations(const char* table);

// Asks the station's server on host; with detail, its live connections too.
// A station the module list does not know throws.
StationView askStation(const StationEntry& station, const std::string& host, bool detail);

// askStation for every station, on host, without detail; a station the
// module list does not know is unregistered, with the reason.
std::vector<StationView> askStations(const std::vector<StationEntry>& stations, const std::string& host);

}  // namespace heron

#endif
