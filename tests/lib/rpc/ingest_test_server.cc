// The ingest server's failure modes, for the client tests (Ingest's own
// service, run by support/live_service.h, is the well-behaved server).
//
//   ingest_test_server <program number> --reply=<mode>
//
// Registers the program with the rpcbind on 127.0.0.1, prints "ready" and
// answers every call badly, whatever the program, until SIGTERM or SIGINT:
//   garbage    the call's xid and then words that are no reply; the
//              connection stays open
//   truncated  an accepted, successful reply that ends where the result
//              should begin; then the connection closes
//   hangup     the call is read and the connection closed
//   trickle    a whole, successful int reply, one byte every 200 ms
//   stale      a successful int reply with another xid, every 200 ms
//   hugestring a successful reply whose result announces a string of
//              0xfffffff0 bytes and holds 4; then the connection closes
//   mute       a successful INGEST_CONNECT reply, and nothing connects back
//   stranger   a successful reply after a connection back from 127.0.0.2
//              that sends "stranger"; then the server's own, with one
//              sample of channel 3
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "rpc/ingest_rpc.h"
#include "rpc_server_loop.h"

namespace {

void putBig32(std::string& out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
}

// One raw sample of chan, stamped now, holding `value`.
std::string sample(int chan, uint32_t value) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  std::string s;
  putBig32(s, static_cast<uint32_t>((ts.tv_sec % 86400) * 1000 + ts.tv_nsec / 1000000));
  s += {static_cast<char>(chan), 4};
  putBig32(s, value);
  return s;
}

// A stream connection to 127.0.0.1:port, from `from` (host order, 0 for
// any); -1 on failure.
int connectTo(unsigned short port, uint32_t from) {
  struct sockaddr_in a = {};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(from);
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && from != 0 && bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof a) != 0) fd = (close(fd), -1);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(port);
  if (fd >= 0 && connect(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof a) != 0) fd = (close(fd), -1);
  if (fd < 0) perror("ingest_test_server: connecting back");
  return fd;
}

// The data port that the INGEST_CONNECT call `rec` (one whole record)
// announces; 0 when it holds none.
unsigned short announcedPort(const std::string& rec) {
  auto word = [&](size_t at) {
    uint32_t w = 0;
    if (at + 4 <= rec.size()) memcpy(&w, &rec[at], 4);
    return ntohl(w);
  };
  size_t at = 4 * 8;  // mark, xid, kind, RPC version, program, version, procedure, credential kind
  at += 4 + (word(at) + 3) / 4 * 4 + 4;  // credential, verifier kind
  at += 4 + (word(at) + 3) / 4 * 4;      // verifier
  if (at > rec.size()) return 0;
  XDR x;
  xdrmem_create(&x, const_cast<char*>(rec.data()) + at, static_cast<u_int>(rec.size() - at), XDR_DECODE);
  connect_t p = {};
  const unsigned short port = xdr_connect_t(&x, &p) ? p.s_port : 0;
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&p));
  return port;
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
  int data = -1;  // stranger: the connection back
};

// Starts the answer to the call that p has read (its first 8 bytes, the
// record mark and xid; all of it for the stranger); false to hang up at once.
bool answer(Peer& p, const std::string& mode) {
  const std::string xid(p.in, 4, 4);
  std::string stale = xid;
  stale[3] = static_cast<char>(stale[3] + 1);
  std::vector<uint32_t> result = kSuccess;
  result.push_back(0);
  if (mode == "garbage") p.out = record(xid, {0xdeadbeef, 0xfeedface});
  if (mode == "truncated") p.out = record(xid, kSuccess);
  if (mode == "hugestring") p.out = record(xid, {1, 0, 0, 0, 0, 0xfffffff0u}, "abcd");
  if (mode == "trickle" || mode == "mute" || mode == "stranger") p.out = record(xid, result);
  if (mode == "stale") p.out = record(stale, result);
  if (mode == "stranger") {
    const unsigned short port = announcedPort(p.in);
    const int fd = connectTo(port, 0x7f000002);  // 127.0.0.2
    if (fd >= 0 && (send(fd, "stranger", 8, MSG_NOSIGNAL) != 8 || close(fd) != 0)) perror("ingest_test_server: stranger");
    const std::string s = sample(3, 0);
    if ((p.data = connectTo(port, 0)) >= 0 && send(p.data, s.data(), s.size(), MSG_NOSIGNAL) != 10) perror("ingest_test_server");
  }
  p.closeWhenSent = mode == "truncated" || mode == "hugestring";
  return mode != "hangup";
}

void hangUp(const Peer& p) {
  close(p.fd);
  if (p.data >= 0) close(p.data);
}

// Answers every call on listenfd in the way mode says.  The paced modes
// send a unit every 200 ms: trickle one byte of its reply, stale one more
// reply with the wrong xid.
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
      uint32_t mark = 0;
      if (p.in.size() >= 4) memcpy(&mark, p.in.data(), 4);
      if (!close_ && !p.answered && p.in.size() >= 8 && (mode != "stranger" || p.in.size() >= 4 + (ntohl(mark) & 0x7fffffff))) {
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
        hangUp(p);
        peers.erase(peers.begin() + static_cast<long>(i - 1));
      }
    }
  }
  for (const Peer& p : peers) hangUp(p);
}

}  // namespace

int main(int argc, char** argv) {
  char* end = nullptr;
  const unsigned long prog = argc == 3 ? strtoul(argv[1], &end, 0) : 0;
  const std::string opt = argc == 3 ? argv[2] : "";
  const std::string mode = opt.compare(0, 8, "--reply=") == 0 ? opt.substr(8) : "";
  const std::string modes = " garbage truncated hangup trickle stale hugestring mute stranger ";
  if (argc != 3 || *end != '\0' || modes.find(" " + mode + " ") == std::string::npos) {
    fprintf(stderr, "usage: %s <program number> --reply=<mode>\n", argv[0]);
    return 2;
  }
  replyBadly(rpctest::listenRegistered(static_cast<rpcprog_t>(prog)), mode);
  rpctest::unregister(static_cast<rpcprog_t>(prog));
  return 0;
}
