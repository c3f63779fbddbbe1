// A small ingest server for the tests.
//
//   ingest_test_server <system number> [--no-connect-back | --stranger]
//   ingest_test_server <program number> --reply=<mode>
//
// Registers its program (INGEST_PROG + <system number>, or the program number
// as given) with the rpcbind on 127.0.0.1, prints "ready" and serves until
// SIGTERM or SIGINT.
//
// Served normally, INGEST_CONNECT connects back to the caller's address at
// the announced port (stream) or sends datagrams there, as Ingest does;
// every 20 ms each connection gets one raw sample of every channel in its
// mask: the 6-byte header (big-endian time tag in milliseconds of the day,
// channel, length 4) and the connection's tick count, big-endian, as data.  INGEST_DISCONNECT and INGEST_RESET_CONNECT act on the connection
// of the same name and port.  With --no-connect-back INGEST_CONNECT is
// accepted but never connected back; with --stranger a connection from
// 127.0.0.2 that sends "stranger" comes first.
//
// With --reply every call is answered badly, whatever the program:
//   garbage    the call's xid and then words that are no reply; the
//              connection stays open
//   truncated  an accepted, successful reply that ends where the result
//              should begin; then the connection closes
//   hangup     the call is read and the connection closed
//   trickle    a whole, successful int reply, one byte every 200 ms
//   stale      a successful int reply with another xid, every 200 ms
//   hugestring a successful reply whose result announces a string of
//              0xfffffff0 bytes and holds 4; then the connection closes
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <list>
#include <string>
#include <vector>

#include "rpc/ingest_peer.h"
#include "rpc/ingest_rpc.h"
#include "rpc_server_loop.h"

namespace {

struct Connection {
  std::string name;
  unsigned short port = 0;
  bool dgram = false;
  int fd = -1;
  uint32_t mask[8] = {};
  uint32_t ticks = 0;
  std::string queue;  // stream bytes not yet written
};

bool connectBack = true;
bool stranger = false;
std::list<Connection> connections;

std::list<Connection>::iterator find(const connect_t& p) {
  for (auto it = connections.begin(); it != connections.end(); ++it)
    if (it->port == p.s_port && it->name == p.name) return it;
  return connections.end();
}

bool copyMask(uint32_t* mask, const connect_t& p) {
  if (p.channels.channels_len != 8) return false;
  memcpy(mask, p.channels.channels_val, sizeof(uint32_t[8]));
  return true;
}

// Connects to the client's data socket, where the call came from.
int openBack(const connect_t& p, struct svc_req* rq) {
  struct sockaddr_in to;
  if (!ingest_peer_address(p, rq, &to)) return -1;
  if (stranger) {
    struct sockaddr_in from = {};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl(0x7f000002);  // 127.0.0.2
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<struct sockaddr*>(&from), sizeof from) != 0 ||
        connect(fd, reinterpret_cast<struct sockaddr*>(&to), sizeof to) != 0 || send(fd, "stranger", 8, 0) != 8)
      perror("ingest_test_server: stranger");
    if (fd >= 0) close(fd);
  }
  int fd = socket(AF_INET, (p.sock_is_dgram ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
  if (fd >= 0 && (connect(fd, reinterpret_cast<struct sockaddr*>(&to), sizeof to) != 0 ||
                  fcntl(fd, F_SETFL, O_NONBLOCK) != 0)) {
    close(fd);
    fd = -1;
  }
  return fd;
}

void drop(std::list<Connection>::iterator it) {
  if (it->fd >= 0) close(it->fd);
  connections.erase(it);
}

int handle(rpcproc_t proc, const connect_t& p, struct svc_req* rq) {
  auto it = find(p);
  if (proc == INGEST_DISCONNECT || proc == INGEST_RESET_CONNECT) {
    if (it == connections.end()) return -1;
    if (proc == INGEST_RESET_CONNECT) return copyMask(it->mask, p) ? 0 : -1;
    drop(it);
    return 0;
  }
  Connection c;
  c.name = p.name;
  c.port = p.s_port;
  c.dgram = p.sock_is_dgram != 0;
  if (!copyMask(c.mask, p) || (connectBack && (c.fd = openBack(p, rq)) < 0)) return -1;
  if (it != connections.end()) drop(it);
  connections.push_back(c);
  return 0;
}

void dispatch(struct svc_req* rq, SVCXPRT* xprt) {
  if (rpctest::answerPing(rq, xprt)) return;
  if (rq->rq_proc != INGEST_CONNECT && rq->rq_proc != INGEST_DISCONNECT && rq->rq_proc != INGEST_RESET_CONNECT) {
    svcerr_noproc(xprt);
    return;
  }
  ingest_serve_connect(xprt, [rq](const connect_t& p) { return handle(rq->rq_proc, p, rq); });
}

void putBig32(std::string& out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
}

// False when the stream is dead and the connection must go.
bool sendTick(Connection& c) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  const uint32_t tt = static_cast<uint32_t>((ts.tv_sec % 86400) * 1000 + ts.tv_nsec / 1000000);
  std::string batch;
  for (int ch = 0; ch < 256; ++ch) {
    if (!(c.mask[ch / 32] & (UINT32_C(1) << (ch % 32)))) continue;
    putBig32(batch, tt);
    batch += {static_cast<char>(ch), 4};
    putBig32(batch, c.ticks);
  }
  ++c.ticks;
  if (c.dgram) {
    if (!batch.empty()) (void)send(c.fd, batch.data(), batch.size(), MSG_NOSIGNAL);  // lost if refused
    return true;
  }
  if (c.queue.size() < 64 * 1024) c.queue += batch;  // a slow reader loses samples
  ssize_t w = c.queue.empty() ? 0 : send(c.fd, c.queue.data(), c.queue.size(), MSG_NOSIGNAL);
  if (w < 0) return errno == EAGAIN;
  c.queue.erase(0, static_cast<size_t>(w));
  return true;
}

void tick() {
  for (auto it = connections.begin(); it != connections.end();) {
    auto here = it++;
    if (here->fd >= 0 && !sendTick(*here)) drop(here);
  }
}

// One reply record: the xid as the call sent it, then words, then tail.
std::string record(const std::string& xid, std::vector<uint32_t> words, const std::string& tail = "") {
  std::string body = xid;
  for (uint32_t w : words) putBig32(body, w);
  body += tail;
  std::string rec;
  putBig32(rec, 0x80000000u | static_cast<uint32_t>(body.size()));
  return rec + body;
}

// REPLY, ACCEPTED, no verifier, SUCCESS: what precedes the result.
const std::vector<uint32_t> kSuccess = {1, 0, 0, 0, 0};

struct Peer {
  int fd;
  std::string in, out;  // out: what is still to be sent
  bool answered = false, closeWhenSent = false;
};

// Starts the bad answer to the call whose first 8 bytes (record mark and
// xid) p has read; false to hang up at once.
bool answer(Peer& p, const std::string& mode) {
  const std::string xid(p.in, 4, 4);
  std::string stale = xid;
  stale[3] = static_cast<char>(stale[3] + 1);
  std::vector<uint32_t> result = kSuccess;
  result.push_back(0);
  if (mode == "garbage") p.out = record(xid, {0xdeadbeef, 0xfeedface});
  if (mode == "truncated") p.out = record(xid, kSuccess);
  if (mode == "hugestring") p.out = record(xid, {1, 0, 0, 0, 0, 0xfffffff0u}, "abcd");
  if (mode == "trickle") p.out = record(xid, result);
  if (mode == "stale") p.out = record(stale, result);
  p.closeWhenSent = mode == "truncated" || mode == "hugestring";
  return mode != "hangup";
}

// Answers every call on listenfd badly, in the way mode says.  The paced
// modes send a unit every 200 ms: trickle one byte of its reply, stale one
// more reply with the wrong xid.
void replyBadly(int listenfd, const std::string& mode) {
  const bool paced = mode == "trickle" || mode == "stale";
  std::vector<Peer> peers;
  rpctest::announceReady();
  for (;;) {
    std::vector<struct pollfd> fds = {{listenfd, POLLIN, 0}};
    for (const Peer& p : peers) fds.push_back({p.fd, POLLIN, 0});
    if (!rpctest::wait(fds.data(), fds.size(), paced ? 200 : -1)) break;
    if (fds[0].revents & POLLIN) {
      int fd = accept4(listenfd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) peers.push_back({fd, "", ""});
    }
    for (size_t i = fds.size() - 1; i > 0; --i) {
      Peer& p = peers[i - 1];
      char buf[4096];
      ssize_t got = fds[i].revents ? read(p.fd, buf, sizeof buf) : 1;
      if (fds[i].revents && got > 0) p.in.append(buf, static_cast<size_t>(got));
      bool close_ = got <= 0;
      if (!close_ && !p.answered && p.in.size() >= 8) {
        p.answered = true;
        close_ = !answer(p, mode);
      }
      const size_t unit = mode == "trickle" ? 1 : p.out.size();
      if (!close_ && !p.out.empty() && (!paced || !fds[i].revents)) {
        close_ = send(p.fd, p.out.data(), unit, MSG_NOSIGNAL) < 0;
        if (mode != "stale") p.out.erase(0, unit);
        close_ = close_ || (p.out.empty() && p.closeWhenSent);
      }
      if (close_) {
        close(p.fd);
        peers.erase(peers.begin() + static_cast<long>(i - 1));
      }
    }
  }
  for (const Peer& p : peers) close(p.fd);
}

}  // namespace

int main(int argc, char** argv) {
  char* end = nullptr;
  unsigned long n = argc > 1 ? strtoul(argv[1], &end, 0) : 0;
  const std::string opt = argc == 3 ? argv[2] : "";
  const std::string mode = opt.compare(0, 8, "--reply=") == 0 ? opt.substr(8) : "";
  connectBack = opt != "--no-connect-back";
  stranger = opt == "--stranger";
  const std::string modes = " garbage truncated hangup trickle stale hugestring ";
  if (argc < 2 || *end != '\0' || argc > 3 || (!opt.empty() && connectBack && !stranger && mode.empty()) ||
      (!mode.empty() && modes.find(" " + mode + " ") == std::string::npos)) {
    fprintf(stderr, "usage: %s <system number> [--no-connect-back | --stranger]\n"
                    "       %s <program number> --reply=<mode>\n", argv[0], argv[0]);
    return 2;
  }
  const rpcprog_t prog = static_cast<rpcprog_t>(mode.empty() ? INGEST_PROG + n : n);
  int listenfd = rpctest::listenRegistered(prog);
  if (mode.empty()) {
    rpctest::serve(listenfd, prog, dispatch, 20, tick);
  } else {
    replyBadly(listenfd, mode);
    rpctest::unregister(prog);
  }
  for (Connection& c : connections)
    if (c.fd >= 0) close(c.fd);
  return 0;
}
