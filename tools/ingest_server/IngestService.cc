#include "IngestService.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <errno.h>
#include <rpc/rpcb_clnt.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "base/Exception.h"
#include "base/logit.h"
#include "rpc/ingest_peer.h"
#include "rpc/ingest_rpc.h"

namespace {
IngestService* theService = nullptr;  // the one the RPC dispatch serves

bool_t xdrVoid(XDR*, void*) { return TRUE; }

// The status's ages and rates run on the acquisition's clock.
double now() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9;
}
}  // namespace

// The RPC library calls plain functions; this one reaches the service.
struct IngestDispatch {
  static void connections(SVCXPRT* xprt);
  static void status(SVCXPRT* xprt);
  static void dispatch(struct svc_req* rq, SVCXPRT* xprt);
};

IngestService::IngestService(int moduleNumber, const InputState& input)
    : prog_(static_cast<rpcprog_t>(INGEST_PROG + moduleNumber)), input_(input) {
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_addr.s_addr = htonl(INADDR_ANY);
  listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0 || bind(listenFd_, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0 ||
      listen(listenFd_, 16) != 0)
    throw oru::IOException("ingest service", "listen", errno);
  xprt_ = svc_vc_create(listenFd_, 0, 0);
  struct netconfig* nconf = getnetconfigent("tcp");
  rpcb_unset(prog_, INGEST_VERS, nullptr);  // a registration left by a killed predecessor
  bool ok = xprt_ != nullptr && nconf != nullptr && svc_reg(xprt_, prog_, INGEST_VERS, IngestDispatch::dispatch, nconf);
  if (nconf) freenetconfigent(nconf);
  if (!ok) throw oru::Exception("IngestService", "cannot register with rpcbind");
  theService = this;
}

IngestService::~IngestService() {
  clients_.clear();
  svc_unreg(prog_, INGEST_VERS);
  if (!rpcb_unset(prog_, INGEST_VERS, nullptr)) logit(LOG_WARNING, "ingest service: rpcbind kept our registration");
  if (xprt_) svc_destroy(xprt_);  // closes the listener
  theService = nullptr;
}

void IngestService::pollFds(std::vector<struct pollfd>& fds) const {
  for (int i = 0; i < svc_max_pollfd; ++i) fds.push_back({svc_pollfd[i].fd, svc_pollfd[i].events, 0});
  for (const auto& c : clients_) fds.push_back({c->fd(), static_cast<short>(POLLIN | (c->hasQueued() ? POLLOUT : 0)), 0});
}

void IngestService::handle(struct pollfd* fds, size_t first) {
  const size_t nsvc = static_cast<size_t>(svc_max_pollfd);
  size_t i = first + nsvc;
  for (auto it = clients_.begin(); it != clients_.end(); ++i) {
    ClientQueue& c = **it;
    if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) c.drain();
    if (!c.dead() && (fds[i].revents & POLLOUT)) c.writable();
    it = c.dead() ? clients_.erase(it) : std::next(it);
  }
  // Last: serving a call may add or drop clients and svc descriptors.
  int ready = 0;
  for (size_t k = 0; k < nsvc; ++k) ready += fds[first + k].revents != 0;
  if (ready) svc_getreq_poll(fds + first, ready);
}

void IngestService::deliver(int chan, const char* p, size_t n) {
  for (const auto& c : clients_)
    if (c->wants(chan)) c->push(p, n);
}

void IngestService::send() {
  for (const auto& c : clients_) c->send();
}

std::list<std::unique_ptr<ClientQueue>>::iterator IngestService::find(const connect_t& p) {
  for (auto it = clients_.begin(); it != clients_.end(); ++it)
    if ((*it)->port == p.s_port && (*it)->name == p.name) return it;
  return clients_.end();
}

// Connects back to the client's data socket: its announced name, else the
// address the call came from.  The connect does not wait; the data wait in
// the queue until it completes.
int IngestService::connect(const connect_t& p, struct svc_req* rq) {
  if (p.channels.channels_len != 8) return -1;
  struct sockaddr_in to;
  if (!ingest_peer_address(p, rq, &to)) return -1;
  int fd = socket(AF_INET, (p.sock_is_dgram ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  // The kernel's share of a stalled client's backlog is bounded as well as
  // ours, so memory stays flat whatever the client does.
  const int sndbuf = static_cast<int>(ClientQueue::kQueueBytes);
  if (fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf) != 0)
    logit(LOG_WARNING, "INGEST_CONNECT %s:%u: SO_SNDBUF: %s", p.name, p.s_port, strerror(errno));
  // The loop gathers a few milliseconds of samples into each send itself;
  // holding a send back for the last one's acknowledgement as well would
  // stall a client with a small receive buffer for a delayed ACK each time.
  const int nodelay = 1;
  if (fd >= 0 && !p.sock_is_dgram && setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &nodelay, sizeof nodelay) != 0)
    logit(LOG_WARNING, "INGEST_CONNECT %s:%u: TCP_NODELAY: %s", p.name, p.s_port, strerror(errno));
  if (fd < 0 || (::connect(fd, reinterpret_cast<struct sockaddr*>(&to), sizeof to) != 0 && errno != EINPROGRESS)) {
    logit(LOG_WARNING, "INGEST_CONNECT %s:%u: %s", p.name, p.s_port, strerror(errno));
    if (fd >= 0) close(fd);
    return -1;
  }
  auto old = find(p);
  if (old != clients_.end()) clients_.erase(old);
  clients_.push_back(std::unique_ptr<ClientQueue>(
      new ClientQueue(fd, p.name, to, p.sock_is_dgram != 0, p.channels.channels_val)));
  logit(LOG_INFO, "connected to %s:%u (%s)", p.name, p.s_port, p.sock_is_dgram ? "datagram" : "stream");
  return 0;
}

void IngestDispatch::connections(SVCXPRT* xprt) {
  IngestService& s = *theService;
  std::vector<ingest_connection> list(s.clients_.size());
  size_t k = 0;
  for (const auto& c : s.clients_) {
    ingest_connection& e = list[k];
    e = {c->port, c->address, c->dgram, c->writeerr, c->partialWrites, c->blockedWrites, c->unreachable,
         c->nsamples, c->nwrites, c->nlost, nullptr};
    if (k > 0) list[k - 1].next = &e;
    ++k;
  }
  ingest_connection_res res;
  res.ierr = 0;
  res.ingest_connection_res_u.list = list.empty() ? nullptr : &list[0];
  svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(xdr_ingest_connection_res), reinterpret_cast<char*>(&res));
}

void IngestDispatch::status(SVCXPRT* xprt) {
  char* station = nullptr;
  if (!svc_getargs(xprt, reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&station))) {
    svcerr_decode(xprt);
    return;
  }
  const InputState& in = theService->input_;
  const double t = now();
  const double up = t - in.started;
  // Only as much of a text as its bound lets through.
  const std::string error = in.archiveFailure.substr(0, 1023), file = in.archiveFile.substr(0, 1023);
  const char* state = !in.archiveFailure.empty() ? "archive-failing" : in.quiet ? "quiet" : "up";
  input_status st = {static_cast<float>(up > 0 ? in.samples / up : 0), in.badSerialSamples,
                     static_cast<unsigned long>(up), const_cast<char*>(in.station.c_str()),
                     const_cast<char*>(in.port.c_str()), in.open, const_cast<char*>(state),
                     const_cast<char*>(error.c_str()), in.samplesLost, in.archiveErrors, in.tossedTags,
                     static_cast<float>(in.lastSample < 0 ? -1 : t - in.lastSample), in.quietSpells,
                     const_cast<char*>(file.c_str())};
  input_status_res res;
  // An empty name asks for this server's input, whatever its station.
  res.ierr = station[0] == '\0' || in.station == station ? 0 : 1;
  res.input_status_res_u.status = &st;
  svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(xdr_input_status_res), reinterpret_cast<char*>(&res));
  svc_freeargs(xprt, reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&station));
}

void IngestDispatch::dispatch(struct svc_req* rq, SVCXPRT* xprt) {
  IngestService& s = *theService;
  switch (rq->rq_proc) {
    case NULLPROC:
      svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(xdrVoid), nullptr);
      return;
    case INGEST_CONNECTIONS:
      connections(xprt);
      return;
    case INGEST_INPUT_STATUS:
      status(xprt);
      return;
    case INGEST_CONNECT:
    case INGEST_DISCONNECT:
    case INGEST_RESET_CONNECT:
      break;
    default:
      svcerr_noproc(xprt);
      return;
  }
  const bool sent = ingest_serve_connect(xprt, [&](const connect_t& p) {
    auto it = s.find(p);
    if (rq->rq_proc == INGEST_CONNECT) return s.connect(p, rq);
    if (it == s.clients_.end()) return -1;
    if (rq->rq_proc == INGEST_DISCONNECT) {
      s.clients_.erase(it);
      return 0;
    }
    if (p.channels.channels_len != 8) return -1;
    (*it)->setMask(p.channels.channels_val);
    return 0;
  });
  if (!sent)
    logit(LOG_WARNING, "ingest service: reply to procedure %lu not sent", static_cast<unsigned long>(rq->rq_proc));
}
