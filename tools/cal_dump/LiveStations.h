// cal_dump -l's connections to the ingest servers of the wanted modules,
// kept through restarts of the servers.
//
// Each station (module) has at most one IngestRawDataInput in the merger,
// non-blocking so that a quiet or dead station never holds the others up.
// A station whose server is not registered, or does not answer, is tried
// again every second; it is asked of the port mapper first, with a time
// bound, so that a failed connection never reaches the input's own end of
// the process.  A connection that ends (the server closed it, or a read
// failed) is reported on standard error, the station is tried again every
// second, and the reconnection, with the length of the gap, is reported
// and counted.  Only an unknown server host at the start is a fault: it
// is thrown as oru::IOException.
#ifndef HERON_CAL_DUMP_LIVESTATIONS_H
#define HERON_CAL_DUMP_LIVESTATIONS_H

#include <string>
#include <vector>

#include "rpc/ChanBits.h"

class RawDataInput;
class RawDataInputs;

namespace heron {

class LiveStations {
 public:
  struct Station {
    std::string name;  // the module's name
    int number;        // its system number: the server is INGEST_PROG + number
  };

  // Stations read from `server`, asking for `channels`, into `inputs`
  // (which must outlive this).
  LiveStations(RawDataInputs& inputs, const std::string& server, const ChanBits& channels,
               const std::vector<Station>& stations);

  // Connects every station whose server answers; for each other one a line
  // on standard error says what is waited for.
  void start();
  // Waits up to timeoutMs for data on the connections, notes the
  // connections that have ended (a read failure the merger threw on is
  // `why`), and tries the stations that are down when a second has passed
  // since the last try.
  void service(int timeoutMs, const std::string& why = "");
  // service(0) when a second has passed since the last look; nothing
  // otherwise (called after every sample).
  void tick();

  long reconnections() const { return reconnections_; }

 private:
  struct Link {
    Station station;
    RawDataInput* input = nullptr;  // owned by the merger; null while down
    bool announced = false;         // the wait or the end has been reported
    bool lost = false;              // connected once, and the connection ended
    double downSince = 0;           // monotonic seconds
  };

  bool connect(Link& link, bool atStart);
  void ended(Link& link, const std::string& why);
  int indexOf(const RawDataInput* in) const;
  void noteDropped(const std::string& why);
  void noteHangups(int timeoutMs);
  std::string label(const Link& link) const;

  RawDataInputs& inputs_;
  std::string server_;
  ChanBits channels_;
  std::vector<Link> links_;
  double nextTry_ = 0, nextLook_ = 0;
  long reconnections_ = 0;
};

}  // namespace heron

#endif
