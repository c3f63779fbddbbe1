// What a station's ingest server says of it, as the tools show it: one
// StationView per station, and the JSON document of a set of them that
// ingest_status --json prints and the station page serves.  Ages are
// seconds on the server's monotonic clock, as Ingest measured them; the
// times written are this computer's wall clock less those ages.  Nothing
// here asks a server (StationAsk.h does); these only format.
#ifndef HERON_STATUS_STATIONVIEW_H
#define HERON_STATUS_STATIONVIEW_H

#include <stdio.h>
#include <time.h>

#include <string>
#include <vector>

#include "rpc/ingest_rpc.h"

struct StationView {
  std::string station, port;
  std::string state;   // up, quiet, archive-failing, down, unregistered
  std::string reason;  // why down or unregistered
  double age = -1;     // of the last sample; -1: none yet or not asked
  double rate = 0;     // samples/s over the last 10 s
  unsigned long long samples = 0, archiveBytes = 0;
  unsigned long bad = 0, lost = 0, archiveErrors = 0, clients = 0, upTime = 0;
  std::string archiveFile;
  std::vector<channel_status> channels;
  std::vector<ingest_connection> connections;  // asked for a single station only

  // Whether its server answered: neither down nor unregistered.
  bool answered() const { return state != "down" && state != "unregistered"; }
};

// t (seconds of the wall clock) in ISO 8601 UTC, to the second.
std::string isoTime(double t);

// The monitoring status of a set of stations: 0 all up, 1 some quiet or
// archive failing, 2 some down or unregistered.
int viewStatus(const std::vector<StationView>& views);

// The document described in ingest_status(1), asked at time now.
void printJson(FILE* out, const std::vector<StationView>& views, time_t now);

namespace heron {

// The same document as a string.
std::string statusJson(const std::vector<StationView>& views, time_t now);

}  // namespace heron

#endif
