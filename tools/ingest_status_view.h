// ingest_status's tables: one line per station, then for a single station
// one line per channel.  Ages are seconds on the server's monotonic clock,
// as Ingest measured them.  The printers only format.
#ifndef HERON_TOOLS_INGEST_STATUS_VIEW_H
#define HERON_TOOLS_INGEST_STATUS_VIEW_H

#include <stdio.h>
#include <time.h>

#include <string>
#include <vector>

#include "status/StationView.h"

// The station facts, the monitoring status and the JSON document are
// the library's (status/StationView.h).

// One line per station under a header; with highlight, the lines of
// stations not up are in reverse video (ANSI).
void printTable(FILE* out, const std::vector<StationView>& views, bool highlight);
// One line per channel of v under a header.
void printChannels(FILE* out, const StationView& v);

#endif
