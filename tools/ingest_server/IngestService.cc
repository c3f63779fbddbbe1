#include "IngestService.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <errno.h>
#include <malloc.h>
#include <rpc/rpc_com.h>
#include <rpc/rpcb_clnt.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "base/Exception.h"
#include "base/logit.h"
#include "rpc/ingest_peer.h"
#include "rpc/ingest_rpc.h"
#include "StationStatus.h"

namespace {
IngestService* theService = nullptr;  // the one the RPC dispatch serves

bool_t xdrVoid(XDR*, void*) { return TRUE; }


std::string dotted(uint32_t address) {
  struct in_addr a = {htonl(address)};
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &a, text, sizeof text) ? text : "?";
}
}  // namespace

// The RPC library calls plain functions; this one reaches the service.
struct IngestDispatch {
  static void connections(SVCXPRT* xprt);
  static void status(SVCXPRT* xprt);
  static void dispatch(struct svc_req* rq, SVCXPRT* xprt);
};

IngestService::IngestService(int moduleNumber, const InputState& input, AllowList allow, Clock clock)
    : prog_(static_cast<rpcprog_t>(INGEST_PROG + moduleNumber)),
      input_(input),
      allow_(std::move(allow)),
      clock_(std::move(clock)) {
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_addr.s_addr = htonl(INADDR_ANY);
  listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0 || bind(listenFd_, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0 ||
      listen(listenFd_, 16) != 0)
    throw oru::IOException("ingest service", "listen", errno);
  // A bound on the record puts the connections the listener accepts in the
  // RPC library's non-blocking mode: a call is gathered as its bytes come,
  // and a caller that sends half a call holds nothing.  Small buffers keep
  // an idle connection cheap; longer replies go out in several fragments.
  int maxRecord = static_cast<int>(kMaxRecord);
  if (!rpc_control(RPC_SVC_CONNMAXREC_SET, &maxRecord))
    throw oru::Exception("IngestService", "the RPC library has no non-blocking record mode");
  xprt_ = svc_vc_create(listenFd_, 4096, 4096);
  struct netconfig* nconf = getnetconfigent("tcp");
  rpcb_unset(prog_, INGEST_VERS, nullptr);  // a registration left by a killed predecessor
  bool ok = xprt_ != nullptr && nconf != nullptr && svc_reg(xprt_, prog_, INGEST_VERS, IngestDispatch::dispatch, nconf);
  if (nconf) freenetconfigent(nconf);
  if (!ok) throw oru::Exception("IngestService", "cannot register with rpcbind");
  theService = this;
}

IngestService::~IngestService() {
  // Callers' connections belong to the RPC library: shut down and shown to
  // it as readable, it reads their end and closes them.
  std::vector<struct pollfd> ends;
  for (const auto& c : callers_)
    if (shutdown(c.first, SHUT_RDWR) == 0 || errno == ENOTCONN) ends.push_back({c.first, POLLIN, POLLIN});
  if (!ends.empty()) svc_getreq_poll(ends.data(), static_cast<int>(ends.size()));
  clients_.clear();
  svc_unreg(prog_, INGEST_VERS);
  if (!rpcb_unset(prog_, INGEST_VERS, nullptr)) logit(LOG_WARNING, "ingest service: rpcbind kept our registration");
  if (xprt_) svc_destroy(xprt_);  // closes the listener
  theService = nullptr;
}

void IngestService::pollFds(std::vector<struct pollfd>& fds) const {
  // At the bound, or out of descriptors, new callers wait in the backlog.
  const bool accepting = callers_.size() < kMaxCallers && clock_() >= listenPausedUntil_;
  for (int i = 0; i < svc_max_pollfd; ++i) {
    const int fd = svc_pollfd[i].fd;
    fds.push_back({fd == listenFd_ && !accepting ? -1 : fd, svc_pollfd[i].events, 0});
  }
  for (const auto& c : clients_) fds.push_back({c->fd(), static_cast<short>(POLLIN | (c->hasQueued() ? POLLOUT : 0)), 0});
}

void IngestService::handle(struct pollfd* fds, size_t first) {
  now_ = clock_();
  const size_t nsvc = static_cast<size_t>(svc_max_pollfd);
  size_t i = first + nsvc;
  for (auto it = clients_.begin(); it != clients_.end(); ++i) {
    ClientQueue& c = **it;
    if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) c.drain();
    if (!c.dead() && (fds[i].revents & POLLOUT)) c.writable();
    ended_ = ended_ || c.dead();
    it = c.dead() ? clients_.erase(it) : std::next(it);
  }
  // Last: serving a call may add or drop clients and svc descriptors.
  struct pollfd* svc = fds + first;
  int ready = 0;
  bool accepting = false;
  std::vector<int> readable;
  for (size_t k = 0; k < nsvc; ++k) {
    if (svc[k].revents == 0) continue;
    if (svc[k].fd != listenFd_) readable.push_back(svc[k].fd);
    else if (!(accepting = spareDescriptor())) continue;
    ++ready;
  }
  // svc_getreq_poll counts the ready entries; one held back must not count.
  for (size_t k = 0; k < nsvc && !accepting; ++k)
    if (svc[k].fd == listenFd_) svc[k].revents = 0;
  called_.clear();
  if (ready) svc_getreq_poll(svc, ready);
  track(accepting, readable);
  expire();
}

// The RPC library accepts a caller itself and, out of descriptors, would
// retry for ever; so it is let at the listener only when a descriptor is
// free.  Otherwise the listener rests a second instead of spinning.
bool IngestService::spareDescriptor() {
  const int fd = eventfd(0, EFD_CLOEXEC);
  if (fd >= 0) {
    if (close(fd) != 0) logit(LOG_WARNING, "ingest service: close of a spare descriptor: %s", strerror(errno));
    return true;
  }
  listenPausedUntil_ = now_ + 1;
  warn(limits_, "no descriptor left for a new RPC connection; the listener rests 1 s", 0);
  return false;
}

// Brings the connection table up to date after svc_getreq_poll: drops
// what the library closed, starts the clock of a call begun, and admits
// new connections.  A descriptor that was ready while the listener
// accepted may now be another connection: its peer tells.
void IngestService::track(bool accepting, const std::vector<int>& readable) {
  std::set<int> live;
  for (int k = 0; k < svc_max_pollfd; ++k)
    if (svc_pollfd[k].fd >= 0 && svc_pollfd[k].fd != listenFd_) live.insert(svc_pollfd[k].fd);
  const size_t had = callers_.size();
  for (auto it = callers_.begin(); it != callers_.end();) it = live.count(it->first) ? std::next(it) : callers_.erase(it);
  ended_ = ended_ || callers_.size() < had;
  for (int fd : readable) {
    auto it = callers_.find(fd);
    if (it == callers_.end()) continue;
    struct sockaddr_in peer;
    socklen_t len = sizeof peer;
    if (accepting && (getpeername(fd, reinterpret_cast<struct sockaddr*>(&peer), &len) != 0 ||
                      ntohl(peer.sin_addr.s_addr) != it->second.peer || ntohs(peer.sin_port) != it->second.port)) {
      callers_.erase(it);
      continue;
    }
    if (!called_.count(fd) && !it->second.busy) it->second = {now_, true, it->second.closing, it->second.peer, it->second.port};
  }
  for (int fd : live)
    if (!callers_.count(fd)) admit(fd);
}

// A new RPC connection: it has kCallSeconds for its first call, if its
// peer is on the allow-list at all.
void IngestService::admit(int fd) {
  struct sockaddr_in peer;
  socklen_t len = sizeof peer;
  Caller& c = callers_[fd];
  c = {now_, true, false, 0, 0};
  if (getpeername(fd, reinterpret_cast<struct sockaddr*>(&peer), &len) != 0 || peer.sin_family != AF_INET) {
    logit(LOG_INFO, "ingest service: a new RPC connection has no IPv4 peer (%s)", strerror(errno));
    hangUp(fd);
    return;
  }
  c.peer = ntohl(peer.sin_addr.s_addr);
  c.port = ntohs(peer.sin_port);
  if (allow_.allows(c.peer)) return;
  warn(refusals_, "refused a caller that is not on the allow-list", c.peer);
  hangUp(fd);
}

// Closes what has outlived its bound: RPC connections that took too long
// over a call or sat idle, datagram destinations not renewed.
void IngestService::expire() {
  for (auto& e : callers_) {
    Caller& c = e.second;
    if (c.closing || now_ < c.since + (c.busy ? kCallSeconds : kIdleSeconds)) continue;
    warn(hangUps_, c.busy ? "closed an RPC connection that did not complete a call in time" : "closed an idle RPC connection",
         c.peer);
    hangUp(e.first);
  }
  for (auto it = clients_.begin(); it != clients_.end();) {
    if (!(*it)->dgram || now_ < (*it)->leaseEnd) {
      ++it;
      continue;
    }
    logit(LOG_INFO, "datagram destination %s:%u expired: not renewed for %.0f s", dotted((*it)->address).c_str(),
          (*it)->port, kLeaseSeconds);
    it = clients_.erase(it);
    ended_ = true;
  }
  // What ended connections held goes back to the system, not only to the
  // allocator, at most once a second.
  if (ended_ && now_ >= nextTrim_) {
    malloc_trim(0);
    ended_ = false;
    nextTrim_ = now_ + 1;
  }
}

// The RPC library owns the connection: shut down, it reads the end at the
// next poll and closes it.
void IngestService::hangUp(int fd) {
  auto it = callers_.find(fd);
  if (it != callers_.end()) it->second.closing = true;
  if (shutdown(fd, SHUT_RDWR) != 0 && errno != ENOTCONN)
    logit(LOG_WARNING, "ingest service: shutdown of RPC connection %d: %s", fd, strerror(errno));
}

void IngestService::warn(Throttle& t, const char* what, uint32_t peer) {
  if (now_ < t.next) {
    ++t.held;
    return;
  }
  const std::string from = peer ? " (" + dotted(peer) + ")" : "";
  const std::string more = t.held ? "; " + std::to_string(t.held) + " more in the last minute" : "";
  logit(LOG_WARNING, "ingest service: %s%s%s", what, from.c_str(), more.c_str());
  t = {now_ + 60, 0};
}

void IngestService::deliver(int chan, const char* p, size_t n) {
  for (const auto& c : clients_)
    if (c->wants(chan)) c->push(p, n);
}

void IngestService::send() {
  for (const auto& c : clients_) c->send();
}

// A destination is its address, port and kind; only a call from that
// address finds it, so only its owner may change or end it.
IngestService::Clients::iterator IngestService::find(const connect_t& p, const struct sockaddr_in& to) {
  for (auto it = clients_.begin(); it != clients_.end(); ++it)
    if ((*it)->address == ntohl(to.sin_addr.s_addr) && (*it)->port == p.s_port && (*it)->dgram == (p.sock_is_dgram != 0))
      return it;
  return clients_.end();
}

// Connects back to the client's data socket at the caller's address.  The
// connect does not wait; the data wait in the queue until it completes.
int IngestService::connect(const connect_t& p, struct svc_req* rq) {
  if (p.channels.channels_len != 8) return -1;
  struct sockaddr_in to;
  const char* why = "";
  if (!ingest_peer_address(p, rq, &to, &why)) {
    logit(LOG_WARNING, "INGEST_CONNECT %s:%u refused: %s", p.name, p.s_port, why);
    return -1;
  }
  const std::string dest = dotted(ntohl(to.sin_addr.s_addr)) + ":" + std::to_string(p.s_port);
  auto old = find(p, to);
  if (old == clients_.end() && clients_.size() >= kMaxClients) {
    warn(limits_, "INGEST_CONNECT refused: the connections are at their bound", ntohl(to.sin_addr.s_addr));
    return -1;
  }
  int fd = socket(AF_INET, (p.sock_is_dgram ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  // The kernel's share of a stalled client's backlog is bounded as well as
  // ours, so memory stays flat whatever the client does.
  const int sndbuf = static_cast<int>(ClientQueue::kQueueBytes);
  if (fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf) != 0)
    logit(LOG_WARNING, "INGEST_CONNECT %s: SO_SNDBUF: %s", dest.c_str(), strerror(errno));
  // The loop gathers a few milliseconds of samples into each send itself;
  // holding a send back for the last one's acknowledgement as well would
  // stall a client with a small receive buffer for a delayed ACK each time.
  const int nodelay = 1;
  if (fd >= 0 && !p.sock_is_dgram && setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &nodelay, sizeof nodelay) != 0)
    logit(LOG_WARNING, "INGEST_CONNECT %s: TCP_NODELAY: %s", dest.c_str(), strerror(errno));
  if (fd < 0 || (::connect(fd, reinterpret_cast<struct sockaddr*>(&to), sizeof to) != 0 && errno != EINPROGRESS)) {
    logit(LOG_WARNING, "INGEST_CONNECT %s: %s", dest.c_str(), strerror(errno));
    if (fd >= 0) close(fd);
    return -1;
  }
  if (old != clients_.end()) clients_.erase(old);
  clients_.push_back(std::unique_ptr<ClientQueue>(
      new ClientQueue(fd, p.name, to, p.sock_is_dgram != 0, p.channels.channels_val)));
  if (p.sock_is_dgram) clients_.back()->leaseEnd = now_ + kLeaseSeconds;
  logit(LOG_INFO, "connected to %s (%s, announced as %s)", dest.c_str(), p.sock_is_dgram ? "datagram" : "stream", p.name);
  return 0;
}

// INGEST_DISCONNECT and INGEST_RESET_CONNECT, for the caller's own
// destinations only; a reset renews a datagram destination's lease.
int IngestService::change(rpcproc_t proc, const connect_t& p, struct svc_req* rq) {
  struct sockaddr_in to;
  if (!ingest_peer_address(p, rq, &to)) return -1;
  auto it = find(p, to);
  if (it == clients_.end()) return -1;
  if (proc == INGEST_DISCONNECT) {
    clients_.erase(it);
    ended_ = true;
    return 0;
  }
  if (p.channels.channels_len != 8) return -1;
  (*it)->setMask(p.channels.channels_val);
  (*it)->leaseEnd = now_ + kLeaseSeconds;
  return 0;
}

// Every call: from an address on the allow-list, and from a caller that
// takes its replies (the RPC library would otherwise wait for room to
// write one).  A call refused also ends its connection.
bool IngestService::admitCall(SVCXPRT* xprt) {
  const int fd = xprt->xp_fd;
  called_.insert(fd);
  Caller& c = callers_[fd];
  c.since = now_;
  c.busy = false;
  const struct netbuf* nb = svc_getrpccaller(xprt);
  struct sockaddr_in from = {};
  if (nb != nullptr && nb->len >= sizeof from) memcpy(&from, nb->buf, sizeof from);
  const uint32_t peer = ntohl(from.sin_addr.s_addr);
  if (from.sin_family != AF_INET || !allow_.allows(peer)) {
    warn(refusals_, "refused a call from a caller that is not on the allow-list", peer);
    svcerr_auth(xprt, AUTH_TOOWEAK);
    hangUp(fd);
    return false;
  }
  struct pollfd room = {fd, POLLOUT, 0};
  if (poll(&room, 1, 0) != 1) {
    warn(hangUps_, "closed an RPC connection that does not read its replies", peer);
    hangUp(fd);
    return false;
  }
  return true;
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
  const double t = heron::monotonicSeconds();  // the acquisition's clock
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
  if (!s.admitCall(xprt)) return;
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
    case INGEST_STATION_STATUS: {
      StationStatusReply reply(s.input_, s.clients_.size(), heron::monotonicSeconds());
      svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(xdr_station_status_res), reinterpret_cast<char*>(&reply.res));
      return;
    }
    case INGEST_CONNECT:
    case INGEST_DISCONNECT:
    case INGEST_RESET_CONNECT:
      break;
    default:
      svcerr_noproc(xprt);
      return;
  }
  const bool sent = ingest_serve_connect(xprt, [&](const connect_t& p) {
    return rq->rq_proc == INGEST_CONNECT ? s.connect(p, rq) : s.change(rq->rq_proc, p, rq);
  });
  if (!sent)
    logit(LOG_WARNING, "ingest service: reply to procedure %lu not sent", static_cast<unsigned long>(rq->rq_proc));
}
