// The acquisition side of Ingest's loop, apart from poll and the service:
// reads the port's samples, archives each with the wall-clock time, hands
// it to the live clients, flushes the archive once a second and watches for
// a port gone quiet.  Every wait and every interval runs on the monotonic
// clock, so a step of the wall clock (NTP or GPS setting it) neither delays
// a read nor a flush; the wall clock only names files and dates samples.
// The clocks come in through IngestClock, so the loop runs in memory too.
//
// Samples are read through RawDataInput::readSample, as serial_ingest's
// sampling mode reads them: the same bytes give the same samples, all of
// them archived and served; those whose time tags the input's guard would
// not trust are counted (the line's noise shows there), not dropped.
#ifndef HERON_INGEST_SERVER_ACQUISITION_H
#define HERON_INGEST_SERVER_ACQUISITION_H

#include <stddef.h>

#include <functional>
#include <string>

#include "archive/ArchiveWriter.h"
#include "IngestService.h"
#include "samples/RawDataInput.h"

// Seconds now, on the two clocks.
struct IngestClock {
  std::function<double()> monotonic, wall;
  static IngestClock system();
};

// One port's silences.  The port is quiet once it has sent nothing for
// max(kMinQuiet, kQuietFactor x its recent mean sample interval); one
// warning goes to the log when it goes quiet, one notice when data resume.
class QuietWatch {
 public:
  static constexpr double kMinQuiet = 10, kQuietFactor = 10;
  // Silence counts from start (monotonic) until the first sample.
  QuietWatch(const std::string& station, const std::string& device, double start);
  // Data arrived at mono.
  void sample(double mono);
  // Looks at the silence up to mono.
  void check(double mono);
  double threshold() const;
  bool quiet() const { return quiet_; }
  unsigned long spells() const { return spells_; }
  // Whether any sample has come, and when the last one did.
  bool seen() const { return seen_; }
  double last() const { return last_; }

 private:
  std::string who_;
  double last_;
  bool seen_ = false;
  double meanInterval_ = 0;  // seconds, 0 until two samples have come
  bool quiet_ = false;
  unsigned long spells_ = 0;
};

class Acquisition {
 public:
  // After a read that found samples the port rests kGather seconds: what
  // gathers meanwhile is read, archived and sent to each client in one go.
  // One go stops after kBatch bytes, so that each client is offered its
  // share and the sockets are looked at again before more is queued.
  static constexpr double kGather = 0.003;
  static const size_t kBatch = 16 * 1024;

  using Deliver = std::function<void(int chan, const char* p, size_t n)>;
  // in is non-blocking; state is what the status reports, kept here.
  Acquisition(RawDataInput& in, ArchiveWriter& archive, InputState& state, const IngestClock& clock, Deliver deliver);

  // Whether poll should watch the port (it is not resting).
  bool watchPort() const { return !resting_; }
  // Milliseconds poll may wait: to the rest's end or the next flush.
  int pollTimeout() const;
  // Reads the port when readable or when its rest is over: the number of
  // samples and framing errors read.  A hung-up line that reads nothing
  // throws oru::EOFException.
  int serve(bool readable, bool hangup);
  // Flushes the archive when a second has passed; notes silence.
  void tick();
  // A new archive file (SIGHUP, and at the end).
  void rotate() { archive_.rotate(clock_.wall()); }

 private:
  void noteArchive();

  RawDataInput& in_;
  ArchiveWriter& archive_;
  InputState& state_;
  IngestClock clock_;
  Deliver deliver_;
  QuietWatch quiet_;
  bool resting_ = false;
  double portDue_ = 0, nextFlush_;
};

#endif
