// The test servers of rpc_fixture.h.  Besides "env", the modes answer
// every call, whatever the program:
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
#include <errno.h>
#include <rpc/rpcb_clnt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "rpc/ingest_rpc.h"
#include "rpc/ternserver.h"
#include "support/rpc_fixture.h"

namespace heron_test {
namespace {

void putBig32(std::string& out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
}

uint32_t wordAt(const std::string& rec, size_t at) {
  uint32_t w = 0;
  if (at + 4 <= rec.size()) memcpy(&w, &rec[at], 4);
  return ntohl(w);
}

// Decodes the arguments of the call `rec` (one whole record) with codec.
bool decodeArgs(const std::string& rec, xdrproc_t codec, void* args) {
  size_t at = 4 * 8;                            // mark, xid, kind, RPC version, program, version, procedure, credential kind
  at += 4 + (wordAt(rec, at) + 3) / 4 * 4 + 4;  // credential, verifier kind
  at += 4 + (wordAt(rec, at) + 3) / 4 * 4;      // verifier
  if (at > rec.size()) return false;
  XDR x;
  xdrmem_create(&x, const_cast<char*>(rec.data()) + at, static_cast<u_int>(rec.size() - at), XDR_DECODE);
  return codec(&x, args);
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

// The module server's answer to the whole call in p.in, which it consumes.
void answerEnv(Peer& p, std::map<std::string, std::string>& env) {
  const std::string xid(p.in, 4, 4);
  char* name = nullptr;
  if (wordAt(p.in, 24) == GETTERNSERVERENV && decodeArgs(p.in, reinterpret_cast<xdrproc_t>(xdr_wrapstring), &name)) {
    const std::string value = env[name];
    std::vector<uint32_t> words = kSuccess;
    words.push_back(static_cast<uint32_t>(value.size()));
    p.out += record(xid, words, value + std::string((4 - value.size() % 4) % 4, '\0'));
  } else {
    p.out += record(xid, {1, 0, 0, 0, PROC_UNAVAIL});
  }
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&name));
  p.in.erase(0, 4 + (wordAt(p.in, 0) & 0x7fffffff));
  p.answered = false;
}

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
    connect_t args = {};
    const unsigned short port =
        decodeArgs(p.in, reinterpret_cast<xdrproc_t>(xdr_connect_t), &args) ? args.s_port : 0;
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&args));
    const int fd = dialFrom("127.0.0.2", port);
    if (fd >= 0 && (send(fd, "stranger", 8, MSG_NOSIGNAL) != 8 || close(fd) != 0)) perror("test server: stranger");
    const std::string s = nowSample(3, 0);
    if ((p.data = dialFrom(kLoopback, port)) >= 0 && send(p.data, s.data(), s.size(), MSG_NOSIGNAL) != 10)
      perror("test server: sample");
  }
  p.closeWhenSent = mode == "truncated" || mode == "hugestring";
  return mode != "hangup";
}

void hangUp(const Peer& p) {
  close(p.fd);
  if (p.data >= 0) close(p.data);
}

}  // namespace

int dialFrom(const char* from, unsigned short port) {
  struct sockaddr_in me = loopback(from, 0), it = loopback(kLoopback, port);
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && (bind(fd, reinterpret_cast<struct sockaddr*>(&me), sizeof me) != 0 ||
                  connect(fd, reinterpret_cast<struct sockaddr*>(&it), sizeof it) != 0))
    fd = (close(fd), -1);
  if (fd < 0) fprintf(stderr, "connecting to 127.0.0.1:%u from %s: %s\n", port, from, strerror(errno));
  return fd;
}

TestServer::TestServer(unsigned long prog, const std::string& mode, const std::vector<std::string>& env)
    : prog_(prog), mode_(mode), error_(ensureRpcbind()) {
  for (const std::string& e : env) {
    const size_t at = e.find_first_of("=:");
    env_[e.substr(0, at)] = e[at] == '=' ? e.substr(at + 1) : std::string(strtoul(&e[at + 1], nullptr, 10), 'x');
  }
  struct sockaddr_in sin = loopback(kLoopback, 0);
  socklen_t len = sizeof sin;
  if (error_.empty() && ((listen_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) < 0 ||
                         bind(listen_, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0 ||
                         listen(listen_, 16) != 0 || getsockname(listen_, reinterpret_cast<struct sockaddr*>(&sin), &len) != 0 ||
                         (stop_ = eventfd(0, EFD_CLOEXEC)) < 0))
    error_ = std::string("test server: listening: ") + strerror(errno);
  // rpcbind keeps one address per program, version and transport: ours is
  // 127.0.0.1 and this port.
  struct netconfig* nconf = error_.empty() ? getnetconfigent("tcp") : nullptr;
  struct netbuf nb = {sizeof sin, sizeof sin, &sin};
  if (error_.empty()) rpcb_unset(static_cast<rpcprog_t>(prog_), 1, nullptr);
  if (error_.empty() && (nconf == nullptr || !rpcb_set(static_cast<rpcprog_t>(prog_), 1, nconf, &nb)))
    error_ = "test server: registering program " + std::to_string(prog_) + " with rpcbind failed";
  if (nconf != nullptr) freenetconfigent(nconf);
  if (error_.empty()) thread_ = std::thread([this] { serve(); });
}

TestServer::~TestServer() {
  if (halt()) rpcb_unset(static_cast<rpcprog_t>(prog_), 1, nullptr);
  for (int fd : {listen_, stop_})
    if (fd >= 0) close(fd);
}

bool TestServer::halt() {
  if (!thread_.joinable()) return false;
  const uint64_t one = 1;
  if (write(stop_, &one, sizeof one) != sizeof one) abort();  // the thread would never end
  thread_.join();
  close(listen_);
  listen_ = -1;
  return true;
}

// Answers every call in the way mode_ says.  The paced modes send a unit
// every 200 ms: trickle one byte of its reply, stale one more reply with the
// wrong xid.
void TestServer::serve() {
  const bool paced = mode_ == "trickle" || mode_ == "stale", whole = mode_ == "env" || mode_ == "stranger";
  std::vector<Peer> peers;
  for (;;) {
    std::vector<struct pollfd> fds = {{stop_, POLLIN, 0}, {listen_, POLLIN, 0}};
    for (const Peer& p : peers) fds.push_back({p.fd, POLLIN, 0});
    if (poll(fds.data(), fds.size(), paced ? 200 : -1) < 0 && errno != EINTR) perror("test server: poll");
    if (fds[0].revents) break;
    if (fds[1].revents & POLLIN) {
      const int fd = accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) peers.push_back({fd, "", ""});
    }
    for (size_t i = fds.size() - 1; i > 1; --i) {
      Peer& p = peers[i - 2];
      char buf[4096];
      const ssize_t got = fds[i].revents ? read(p.fd, buf, sizeof buf) : 1;
      if (fds[i].revents && got > 0) p.in.append(buf, static_cast<size_t>(got));
      bool close_ = got <= 0;
      if (!close_ && !p.answered && p.in.size() >= 8 && (!whole || p.in.size() >= 4 + (wordAt(p.in, 0) & 0x7fffffff))) {
        p.answered = true;
        if (mode_ == "env")
          answerEnv(p, env_);
        else
          close_ = !answer(p, mode_);
      }
      const size_t unit = mode_ == "trickle" ? 1 : p.out.size();
      if (!close_ && !p.out.empty() && (!paced || !fds[i].revents)) {
        close_ = send(p.fd, p.out.data(), unit, MSG_NOSIGNAL) < 0;
        if (mode_ != "stale") p.out.erase(0, unit);
        close_ = close_ || (p.out.empty() && p.closeWhenSent);
      }
      if (close_) {
        hangUp(p);
        peers.erase(peers.begin() + static_cast<long>(i - 2));
      }
    }
  }
  for (const Peer& p : peers) hangUp(p);
}

}  // namespace heron_test
