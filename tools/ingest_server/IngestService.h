// The ingest protocol's server side for one station: a TCP listener on all
// addresses registered with rpcbind as program INGEST_PROG + the station's
// module number, version 1, and the data connections it opens back to its
// clients.  Everything runs in the caller's poll loop: pollFds() lists the
// descriptors to watch, handle() serves what poll found, deliver() and send()
// hand each client the samples of its channels.  handle() must run at least
// once a second: it also enforces the time bounds below.
//
// The service faces whatever reaches the station's network, so nothing a
// caller does may hold the loop: calls are read without blocking, only
// addresses on the allow-list are served, data go back only to the caller's
// own address, and every resource a caller can take is bounded.
#ifndef HERON_INGEST_SERVER_INGESTSERVICE_H
#define HERON_INGEST_SERVER_INGESTSERVICE_H

#include <poll.h>
#include <rpc/rpc.h>

#include <algorithm>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ClientQueue.h"
#include "base/clock.h"
#include "rpc/ingest_rpc.h"
#include "site/AllowList.h"

// Samples counted in one-second slots of the monotonic clock: the rate
// over the last ten seconds, or over the time since the first count when
// that is shorter.
class RateRing {
 public:
  static const int kSeconds = 10;
  void add(double mono) {
    const long s = static_cast<long>(mono);
    Slot& slot = slots_[s % kSeconds];
    if (slot.second != s) slot = {s, 0};
    ++slot.count;
    if (first_ < 0) first_ = mono;
  }
  double rate(double mono) const {
    const long now = static_cast<long>(mono);
    unsigned long sum = 0;
    for (const Slot& slot : slots_)
      if (slot.second > now - kSeconds && slot.second <= now) sum += slot.count;
    const double from = std::max(first_, static_cast<double>(now - kSeconds + 1));
    return first_ < 0 ? 0 : sum / std::max(1.0, mono - from);
  }

 private:
  struct Slot {
    long second = -1;
    unsigned long count = 0;
  };
  Slot slots_[kSeconds];
  double first_ = -1;
};

// One channel seen on the input; times of the monotonic clock.
struct ChannelState {
  unsigned long samples = 0;
  double lastSample = 0;
  RateRing rate;
};

// What INGEST_INPUT_STATUS reports; kept up to date by the acquisition.
// Times are of the monotonic clock.
struct InputState {
  std::string station, port;
  bool open = false;
  unsigned long samples = 0;     // good samples since the start
  int badSerialSamples = 0;      // framing errors and untrusted time tags
  unsigned long tossedTags = 0;  // samples whose time tags the guard would not trust
  double started = 0;
  double lastSample = -1;        // -1: none yet
  bool quiet = false;            // no data for longer than the quiet bound
  unsigned long quietSpells = 0;
  std::string archiveFailure;    // empty while archiving works
  unsigned long archiveErrors = 0, samplesLost = 0;
  std::string archiveFile;
  unsigned long long archiveBytes = 0;  // of archiveFile
  RateRing rate;                        // good samples
  std::map<int, ChannelState> channels;
};

class IngestService {
 public:
  static const size_t kMaxCallers = 32;         // RPC connections at once
  static const size_t kMaxClients = 64;         // data connections, stream and datagram
  static const unsigned kMaxRecord = 8 * 1024;  // one call, in bytes
  static constexpr double kCallSeconds = 10;    // to send the rest of a call begun
  static constexpr double kIdleSeconds = 60;    // an RPC connection between calls
  static constexpr double kLeaseSeconds = 600;  // a datagram destination not renewed

  using Clock = std::function<double()>;

  // Registers the service, serving the callers `allow` lets in, with the
  // time bounds measured on clock; throws oru::Exception when it cannot.
  IngestService(int moduleNumber, const InputState& input, AllowList allow, Clock clock = heron::monotonicSeconds);
  // Closes every connection and withdraws the registration.
  ~IngestService();
  IngestService(const IngestService&) = delete;
  IngestService& operator=(const IngestService&) = delete;

  // Appends the descriptors to watch to fds.
  void pollFds(std::vector<struct pollfd>& fds) const;
  // Serves the entries of fds from `first` on, as pollFds() laid them out.
  void handle(struct pollfd* fds, size_t first);
  // Gives one sample (header and data, channel chan) to each client of
  // chan: sent at once to datagram clients, queued for stream clients.
  void deliver(int chan, const char* p, size_t n);
  // Sends each stream client what is queued for it, in one send.
  void send();

  size_t clients() const { return clients_.size(); }

 private:
  friend struct IngestDispatch;
  using Clients = std::list<std::unique_ptr<ClientQueue>>;
  // One RPC connection: since when it has been idle (busy false) or owes
  // the rest of a call (busy), and its peer.
  struct Caller {
    double since = 0;
    bool busy = false, closing = false;
    uint32_t peer = 0;  // host order
    unsigned short port = 0;
  };
  // A kind of warning logged at most once a minute, with a count of those
  // held back.
  struct Throttle {
    double next = 0;
    unsigned held = 0;
  };

  int connect(const connect_t& p, struct svc_req* rq);
  int change(rpcproc_t proc, const connect_t& p, struct svc_req* rq);
  Clients::iterator find(const connect_t& p, const struct sockaddr_in& to);
  bool admitCall(SVCXPRT* xprt);
  bool spareDescriptor();
  void track(bool accepting, const std::vector<int>& readable);
  void admit(int fd);
  void expire();
  void hangUp(int fd);
  void warn(Throttle& t, const char* what, uint32_t peer);

  rpcprog_t prog_;
  const InputState& input_;
  const AllowList allow_;
  const Clock clock_;
  double now_ = 0;  // the clock when handle() began
  int listenFd_ = -1;
  SVCXPRT* xprt_ = nullptr;
  Clients clients_;
  std::map<int, Caller> callers_;  // by descriptor
  std::set<int> called_;           // descriptors that completed a call in this handle()
  double listenPausedUntil_ = 0;
  bool ended_ = false;  // a connection has ended since the last trim
  double nextTrim_ = 0;
  Throttle refusals_, hangUps_, limits_;
};

#endif
