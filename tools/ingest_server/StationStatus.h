// The reply of INGEST_STATION_STATUS: the input's state at a glance, built
// from what the acquisition keeps (InputState) and the count of live data
// connections, with ages and rates taken at now on the monotonic clock.
// The reply's strings and channel list point into the object, so it lives
// until the reply is sent; texts are cut to their bounds in the protocol.
#ifndef HERON_INGEST_SERVER_STATIONSTATUS_H
#define HERON_INGEST_SERVER_STATIONSTATUS_H

#include <stddef.h>

#include <string>
#include <vector>

#include "IngestService.h"
#include "rpc/ingest_rpc.h"

class StationStatusReply {
 public:
  static const size_t kMaxChannels = 256;  // the protocol's bound; a channel is one byte
  StationStatusReply(const InputState& in, size_t clients, double now);
  StationStatusReply(const StationStatusReply&) = delete;
  StationStatusReply& operator=(const StationStatusReply&) = delete;

  station_status_res res;

 private:
  std::string station_, port_, file_;
  std::vector<channel_status> channels_;
};

#endif
