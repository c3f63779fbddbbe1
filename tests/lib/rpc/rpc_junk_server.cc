// A misbehaving RPC server for the tests: registers a TCP port for a program
// with the rpcbind on 127.0.0.1, prints "ready", and answers every call badly
// until SIGTERM or SIGINT.
//
//   rpc_junk_server <program number> garbage|truncated|hangup
//
//   garbage    a reply record with the call's xid and then words that are no
//              reply at all; the connection stays open
//   truncated  an accepted, successful reply that ends where the result
//              should begin; then the connection closes
//   hangup     reads the call and closes the connection
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "rpc_server_loop.h"

namespace {

enum class Mode { garbage, truncated, hangup };

struct Peer {
  int fd;
  std::string in;
  bool answered = false;
};

void putWord(std::string& out, uint32_t v) {
  uint32_t be = htonl(v);
  out.append(reinterpret_cast<const char*>(&be), 4);
}

// The reply record for a call whose first bytes (record mark, xid) are in `in`.
std::string reply(Mode mode, const std::string& in) {
  std::string body(in, 4, 4);  // the call's xid, as sent
  if (mode == Mode::garbage) {
    putWord(body, 0xdeadbeef);
    putWord(body, 0xfeedface);
  } else {
    putWord(body, 1);   // REPLY
    putWord(body, 0);   // MSG_ACCEPTED
    putWord(body, 0);   // verifier AUTH_NONE
    putWord(body, 0);   //   of no bytes
    putWord(body, 0);   // SUCCESS, and no result
  }
  std::string rec;
  putWord(rec, 0x80000000u | static_cast<uint32_t>(body.size()));
  return rec + body;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s <program number> garbage|truncated|hangup\n", argv[0]);
    return 2;
  }
  rpcprog_t prog = static_cast<rpcprog_t>(strtoul(argv[1], nullptr, 0));
  Mode mode;
  if (strcmp(argv[2], "garbage") == 0) mode = Mode::garbage;
  else if (strcmp(argv[2], "truncated") == 0) mode = Mode::truncated;
  else if (strcmp(argv[2], "hangup") == 0) mode = Mode::hangup;
  else {
    fprintf(stderr, "%s: unknown mode %s\n", argv[0], argv[2]);
    return 2;
  }

  int lfd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (lfd < 0 || bind(lfd, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0 || listen(lfd, 8) != 0) {
    perror("rpc_junk_server: listen");
    return 2;
  }
  rpctest::setUpSignals();
  if (!rpctest::registerPort(prog, 1, lfd)) {
    fprintf(stderr, "rpc_junk_server: cannot register with rpcbind\n");
    return 2;
  }
  rpctest::announceReady();

  std::vector<Peer> peers;
  while (!rpctest::stopRequested()) {
    std::vector<struct pollfd> fds;
    fds.push_back({lfd, POLLIN, 0});
    for (const Peer& p : peers) fds.push_back({p.fd, POLLIN, 0});
    int n = ppoll(fds.data(), fds.size(), nullptr, rpctest::waitMask());
    if (n < 0) {
      if (errno == EINTR) continue;
      perror("rpc_junk_server: ppoll");
      break;
    }
    if (fds[0].revents & POLLIN) {
      int fd = accept4(lfd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) peers.push_back({fd, std::string(), false});
    }
    for (size_t i = 1; i < fds.size(); ++i) {
      if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      Peer& p = peers[i - 1];
      char buf[4096];
      ssize_t got = read(p.fd, buf, sizeof buf);
      bool drop = got <= 0;
      if (got > 0) p.in.append(buf, static_cast<size_t>(got));
      if (!drop && !p.answered && p.in.size() >= 8) {
        p.answered = true;
        if (mode != Mode::hangup) {
          std::string r = reply(mode, p.in);
          if (send(p.fd, r.data(), r.size(), MSG_NOSIGNAL) < 0) drop = true;
        }
        if (mode != Mode::garbage) drop = true;
      }
      if (drop) {
        close(p.fd);
        p.fd = -1;
      }
    }
    for (size_t i = peers.size(); i-- > 0;)
      if (peers[i].fd < 0) peers.erase(peers.begin() + static_cast<long>(i));
  }
  rpctest::unregister(prog, 1);
  for (const Peer& p : peers) close(p.fd);
  close(lfd);
  return 0;
}
