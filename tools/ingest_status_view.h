// What ingest_status shows of each station, and the two ways it shows it:
// a table (one line per station, then for a single station one line per
// channel) and one JSON document.  Ages are seconds on the server's
// monotonic clock, as Ingest measured them; the times printed are this
// computer's wall clock less those ages.  Both printers only format.
#ifndef HERON_TOOLS_INGEST_STATUS_VIEW_H
#define HERON_TOOLS_INGEST_STATUS_VIEW_H

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
};

// t (seconds of the wall clock) in ISO 8601 UTC, to the second.
std::string isoTime(double t);

// The monitoring status of a set of stations: 0 all up, 1 some quiet or
// archive failing, 2 some down or unregistered.
int viewStatus(const std::vector<StationView>& views);

// One line per station under a header; with highlight, the lines of
// stations not up are in reverse video (ANSI).
void printTable(FILE* out, const std::vector<StationView>& views, bool highlight);
// One line per channel of v under a header.
void printChannels(FILE* out, const StationView& v);
// The document described in ingest_status(1), asked at time now.
void printJson(FILE* out, const std::vector<StationView>& views, time_t now);

#endif
