// The ingest protocol's server side for one station: a TCP listener on all
// addresses registered with rpcbind as program INGEST_PROG + the station's
// module number, version 1, and the data connections it opens back to its
// clients.  Everything runs in the caller's poll loop: pollFds() lists the
// descriptors to watch, handle() serves what poll found, deliver() and send()
// hand each client the samples of its channels.
#ifndef HERON_INGEST_SERVER_INGESTSERVICE_H
#define HERON_INGEST_SERVER_INGESTSERVICE_H

#include <poll.h>
#include <rpc/rpc.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "ClientQueue.h"
#include "rpc/ingest_rpc.h"

// What INGEST_INPUT_STATUS reports; kept up to date by the acquisition.
// Times are of the monotonic clock.
struct InputState {
  std::string station, port;
  bool open = false;
  unsigned long samples = 0;     // good samples since the start
  int badSerialSamples = 0;      // framing errors and untrusted time tags
  unsigned long tossedTags = 0;  // of which untrusted time tags
  double started = 0;
  double lastSample = -1;        // -1: none yet
  bool quiet = false;            // no data for longer than the quiet bound
  unsigned long quietSpells = 0;
  std::string archiveFailure;    // empty while archiving works
  unsigned long archiveErrors = 0, samplesLost = 0;
  std::string archiveFile;
};

class IngestService {
 public:
  // Registers the service; throws oru::Exception when it cannot.
  IngestService(int moduleNumber, const InputState& input);
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
  int connect(const connect_t& p, struct svc_req* rq);
  std::list<std::unique_ptr<ClientQueue>>::iterator find(const connect_t& p);

  rpcprog_t prog_;
  const InputState& input_;
  int listenFd_ = -1;
  SVCXPRT* xprt_ = nullptr;
  std::list<std::unique_ptr<ClientQueue>> clients_;
};

#endif
