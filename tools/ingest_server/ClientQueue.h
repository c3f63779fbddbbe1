// One live client's data connection: a non-blocking socket back to the
// client and a bounded queue of whole samples not yet sent.  A sample that
// does not fit in the queue is counted as lost, so a slow or stopped client
// never holds anything else up.  Datagram clients get one sample per
// datagram.  The counters are the ones the connection list reports.
#ifndef HERON_INGEST_SERVER_CLIENTQUEUE_H
#define HERON_INGEST_SERVER_CLIENTQUEUE_H

#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

class ClientQueue {
 public:
  static const size_t kQueueBytes = 64 * 1024;

  // Takes ownership of fd, connected (or connecting) to `to`.
  ClientQueue(int fd, const std::string& name, const struct sockaddr_in& to, bool dgram, const uint32_t mask[8]);
  ~ClientQueue();
  ClientQueue(const ClientQueue&) = delete;
  ClientQueue& operator=(const ClientQueue&) = delete;

  bool wants(int chan) const { return (mask_[chan / 32] >> (chan % 32)) & 1; }
  void setMask(const uint32_t mask[8]);
  // Queues (or, for datagrams, sends) one sample.
  void push(const char* p, size_t n);
  // Sends what the socket takes now; false when the client has gone.  A
  // socket that refused bytes is tried again only through writable(), when
  // poll has found room in it.
  bool send();
  bool writable() {
    blocked_ = false;
    return send();
  }
  // The client's end was readable: false when it has closed.
  bool drain();
  bool hasQueued() const { return !queue_.empty(); }
  bool dead() const { return dead_; }

  int fd() const { return fd_; }
  const std::string name;
  const unsigned short port;
  const uint32_t address;  // host order
  const bool dgram;
  double leaseEnd = 0;  // datagrams: when the destination expires unless renewed
  int writeerr = 0, partialWrites = 0, blockedWrites = 0, unreachable = 0;
  unsigned long nsamples = 0, nwrites = 0, nlost = 0;

 private:
  int fd_;
  uint32_t mask_[8];
  std::string queue_;
  bool dead_ = false;
  bool blocked_ = false;  // the last send did not take everything
};

#endif
