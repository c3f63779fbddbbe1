// A small ingest server for the tests.
//
//   ingest_test_server <system number> [--no-connect-back]
//
// Registers program INGEST_PROG + <system number> with the rpcbind on
// 127.0.0.1, prints "ready" and serves until SIGTERM or SIGINT.  On
// INGEST_CONNECT it connects back to name:port (stream) or sends datagrams
// there, falling back to the caller's address when the name does not
// resolve; every 20 ms it sends each connection one raw sample of every
// channel in its mask.  A raw sample is the 6-byte header (big-endian time
// tag in milliseconds of the day, channel, data length) and 4 data bytes: the
// connection's tick count, big-endian.  Stream connections get a byte stream
// of samples, datagram connections one datagram of whole samples per tick.
// With --no-connect-back it accepts INGEST_CONNECT but never connects.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <list>
#include <string>
#include <vector>

#include "rpc/ingest_rpc.h"
#include "rpc_server_loop.h"

extern "C" void ingest_prog_1(struct svc_req* rqstp, SVCXPRT* transp);

namespace {

bool connectBack = true;

// Most bytes queued for a slow stream reader before samples are dropped.
const size_t kQueueLimit = 64 * 1024;

struct Connection {
  std::string name;
  unsigned short port = 0;
  bool dgram = false;
  int fd = -1;
  struct sockaddr_in peer;
  uint32_t mask[8] = {};
  uint32_t ticks = 0;
  std::string queue;  // stream bytes not yet written
  int writeerr = 0, partialWrites = 0, blockedWrites = 0, unreachable = 0;
  unsigned long nsamples = 0, nwrites = 0, nlost = 0;
};

std::list<Connection> connections;

bool sameClient(const Connection& c, const connect_t* p) {
  return c.port == p->s_port && c.name == (p->name ? p->name : "");
}

std::list<Connection>::iterator find(const connect_t* p) {
  for (auto it = connections.begin(); it != connections.end(); ++it)
    if (sameClient(*it, p)) return it;
  return connections.end();
}

bool copyMask(uint32_t* mask, const connect_t* p) {
  if (p->channels.channels_len != 8 || p->channels.channels_val == nullptr) return false;
  memcpy(mask, p->channels.channels_val, 8 * sizeof(uint32_t));
  return true;
}

// The client's address: its announced name, else where the call came from.
bool peerAddress(const connect_t* p, struct svc_req* rq, struct sockaddr_in* out) {
  memset(out, 0, sizeof *out);
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  struct addrinfo* ai = nullptr;
  if (p->name != nullptr && getaddrinfo(p->name, nullptr, &hints, &ai) == 0 && ai != nullptr) {
    memcpy(out, ai->ai_addr, sizeof *out);
    freeaddrinfo(ai);
  } else {
    if (ai != nullptr) freeaddrinfo(ai);
    struct netbuf* caller = svc_getrpccaller(rq->rq_xprt);
    if (caller == nullptr || caller->len < sizeof *out) return false;
    memcpy(out, caller->buf, sizeof *out);
  }
  out->sin_family = AF_INET;
  out->sin_port = htons(p->s_port);
  return true;
}

int openBack(const Connection& c) {
  int fd = socket(AF_INET, (c.dgram ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<const struct sockaddr*>(&c.peer), sizeof c.peer) != 0 ||
      fcntl(fd, F_SETFL, O_NONBLOCK) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

uint32_t msecsOfDay() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<uint32_t>((ts.tv_sec % 86400) * 1000 + ts.tv_nsec / 1000000);
}

void putBig32(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v >> 24));
  out.push_back(static_cast<char>(v >> 16));
  out.push_back(static_cast<char>(v >> 8));
  out.push_back(static_cast<char>(v));
}

// Returns false when the connection is dead and must go.
bool sendTick(Connection& c) {
  std::string batch;
  uint32_t tt = msecsOfDay();
  unsigned long n = 0;
  for (int ch = 0; ch < 256; ++ch) {
    if (!(c.mask[ch / 32] & (UINT32_C(1) << (ch % 32)))) continue;
    putBig32(batch, tt);
    batch.push_back(static_cast<char>(ch));
    batch.push_back(4);
    putBig32(batch, c.ticks);
    ++n;
  }
  ++c.ticks;
  if (n == 0) return true;
  if (c.dgram) {
    ssize_t w = send(c.fd, batch.data(), batch.size(), MSG_NOSIGNAL);
    if (w < 0) {
      if (errno == ECONNREFUSED) ++c.unreachable;
      else if (errno == EAGAIN) ++c.blockedWrites;
      else ++c.writeerr;
      c.nlost += n;
      return true;
    }
    ++c.nwrites;
    c.nsamples += n;
    return true;
  }
  if (c.queue.size() + batch.size() > kQueueLimit) {
    ++c.blockedWrites;
    c.nlost += n;
  } else {
    c.queue += batch;
    c.nsamples += n;
  }
  while (!c.queue.empty()) {
    ssize_t w = send(c.fd, c.queue.data(), c.queue.size(), MSG_NOSIGNAL);
    if (w < 0) {
      if (errno == EAGAIN) break;
      ++c.writeerr;
      return false;
    }
    ++c.nwrites;
    if (static_cast<size_t>(w) < c.queue.size()) ++c.partialWrites;
    c.queue.erase(0, static_cast<size_t>(w));
  }
  return true;
}

void tick() {
  for (auto it = connections.begin(); it != connections.end();) {
    if (it->fd < 0 || sendTick(*it)) {
      ++it;
    } else {
      close(it->fd);
      it = connections.erase(it);
    }
  }
}

}  // namespace

extern "C" {

int* ingest_connect_1_svc(connect_t* p, struct svc_req* rq) {
  static int res;
  res = -1;
  Connection c;
  c.name = p->name ? p->name : "";
  c.port = p->s_port;
  c.dgram = p->sock_is_dgram != 0;
  if (!copyMask(c.mask, p) || !peerAddress(p, rq, &c.peer)) return &res;
  if (connectBack) {
    c.fd = openBack(c);
    if (c.fd < 0) return &res;
  }
  auto old = find(p);
  if (old != connections.end()) {
    if (old->fd >= 0) close(old->fd);
    connections.erase(old);
  }
  connections.push_back(c);
  res = 0;
  return &res;
}

int* ingest_disconnect_1_svc(connect_t* p, struct svc_req*) {
  static int res;
  auto it = find(p);
  if (it == connections.end()) {
    res = -1;
  } else {
    if (it->fd >= 0) close(it->fd);
    connections.erase(it);
    res = 0;
  }
  return &res;
}

int* ingest_reset_connect_1_svc(connect_t* p, struct svc_req*) {
  static int res;
  auto it = find(p);
  res = it != connections.end() && copyMask(it->mask, p) ? 0 : -1;
  return &res;
}

ingest_connection_res* ingest_connections_1_svc(void*, struct svc_req*) {
  static ingest_connection_res res;
  static std::vector<ingest_connection> nodes;
  memset(&res, 0, sizeof res);
  nodes.assign(connections.size(), ingest_connection());
  size_t i = 0;
  for (const Connection& c : connections) {
    ingest_connection& n = nodes[i];
    n.port = c.port;
    n.h_add = ntohl(c.peer.sin_addr.s_addr);
    n.sock_is_dgram = c.dgram;
    n.writeerr = c.writeerr;
    n.partialWrites = c.partialWrites;
    n.blockedWrites = c.blockedWrites;
    n.unreachable = c.unreachable;
    n.nsamples = c.nsamples;
    n.nwrites = c.nwrites;
    n.nlost = c.nlost;
    n.next = i + 1 < nodes.size() ? &nodes[i + 1] : nullptr;
    ++i;
  }
  res.ingest_connection_res_u.list = nodes.empty() ? nullptr : &nodes[0];
  return &res;
}

input_status_res* ingest_input_status_1_svc(char** port, struct svc_req*) {
  static input_status_res res;
  static input_status status;
  static std::string station = "tower1", device = "/dev/ttyS0";
  memset(&res, 0, sizeof res);
  if (*port == nullptr || device != *port) {
    res.ierr = -1;
    return &res;
  }
  status.sampleRate = 20.0f;
  status.badSerialSamples = 0;
  status.upTime = 3600;
  status.station = &station[0];
  status.port = &device[0];
  status.open = TRUE;
  res.input_status_res_u.status = &status;
  return &res;
}

}  // extern "C"

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s <system number> [--no-connect-back]\n", argv[0]);
    return 2;
  }
  char* end = nullptr;
  long n = strtol(argv[1], &end, 10);
  if (*end != '\0' || n < 0 || n > 0xFFFFFF) {
    fprintf(stderr, "%s: bad system number %s\n", argv[0], argv[1]);
    return 2;
  }
  for (int i = 2; i < argc; ++i) {
    if (strcmp(argv[i], "--no-connect-back") == 0) {
      connectBack = false;
    } else {
      fprintf(stderr, "%s: unknown option %s\n", argv[0], argv[i]);
      return 2;
    }
  }
  rpcprog_t prog = static_cast<rpcprog_t>(INGEST_PROG + n);
  rpctest::setUpSignals();
  SVCXPRT* xprt = rpctest::serveOnLoopback(prog, INGEST_VERS, ingest_prog_1);
  rpctest::announceReady();
  rpctest::runLoop(20, tick);
  rpctest::unregister(prog, INGEST_VERS);
  svc_unreg(prog, INGEST_VERS);
  svc_destroy(xprt);
  for (Connection& c : connections)
    if (c.fd >= 0) close(c.fd);
  return 0;
}
