#include "rpc/rpc_client.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_prot.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "rpc/deadline_client.h"
#include "base/clock.h"
#include "rpc/rpc_wait.h"

namespace {
void systemError(int err) {
  rpc_createerr.cf_stat = RPC_SYSTEMERROR;
  rpc_createerr.cf_error.re_status = RPC_SYSTEMERROR;
  rpc_createerr.cf_error.re_errno = err;
}

int timeoutMillis(const struct timeval* t) {
  long long ms = static_cast<long long>(t->tv_sec) * 1000 + t->tv_usec / 1000;
  if (ms < 1) ms = 1;
  if (ms > 3600000) ms = 3600000;
  return static_cast<int>(ms);
}

// A connected, blocking, close-on-exec TCP socket, or -1 with rpc_createerr
// set (ETIMEDOUT when the peer did not answer in time).
int connectTimed(const struct sockaddr_in& addr, const struct timeval* timeout) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) {
    systemError(errno);
    return -1;
  }
  int err = 0;
  if (connect(fd, reinterpret_cast<const struct sockaddr*>(&addr), sizeof addr) != 0) {
    err = errno;
    long long deadline = heron::monotonicMs() + timeoutMillis(timeout);
    while (err == EINPROGRESS || err == EINTR) {
      long long left = deadline - heron::monotonicMs();
      if (left <= 0) {
        err = ETIMEDOUT;
        break;
      }
      struct pollfd p = {fd, POLLOUT, 0};
      int stopped;
      int n = rpc_wait(&p, static_cast<int>(left), &stopped);
      if (stopped) {
        err = EINTR;
        break;
      }
      if (n < 0) {
        err = errno;
        continue;
      }
      if (n == 0) continue;
      socklen_t len = sizeof err;
      if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
      break;
    }
  }
  int flags = fcntl(fd, F_GETFL);
  if (err == 0 && (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0)) err = errno;
  if (err != 0) {
    close(fd);
    systemError(err);
    return -1;
  }
  return fd;
}

// A client of the program listening at addr; it owns its socket.
CLIENT* clientOn(const struct sockaddr_in& addr, rpcprog_t prog, rpcvers_t vers, const struct timeval* timeout) {
  int fd = connectTimed(addr, timeout);
  if (fd < 0) return nullptr;
  return heron_deadline_client(fd, prog, vers, timeout);
}

}  // namespace

CLIENT* heron_clnt_create(const char* host, rpcprog_t prog, rpcvers_t vers, const struct timeval* timeout) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  struct addrinfo* ai = nullptr;
  if (host == nullptr || getaddrinfo(host, nullptr, &hints, &ai) != 0 || ai == nullptr) {
    if (ai != nullptr) freeaddrinfo(ai);
    rpc_createerr.cf_stat = RPC_UNKNOWNHOST;
    return nullptr;
  }
  struct sockaddr_in addr;
  memcpy(&addr, ai->ai_addr, sizeof addr);
  freeaddrinfo(ai);

  // Ask the port mapper where the program listens.
  addr.sin_port = htons(PMAPPORT);
  RpcClient pm(clientOn(addr, PMAPPROG, PMAPVERS, timeout));
  if (pm == nullptr) return nullptr;
  struct pmap query = {prog, vers, IPPROTO_TCP, 0};
  u_short port = 0;
  enum clnt_stat st = clnt_call(pm.get(), PMAPPROC_GETPORT, reinterpret_cast<xdrproc_t>(xdr_pmap),
                                reinterpret_cast<char*>(&query), reinterpret_cast<xdrproc_t>(xdr_u_short),
                                reinterpret_cast<char*>(&port), *timeout);
  if (st != RPC_SUCCESS) {
    rpc_createerr.cf_stat = RPC_PMAPFAILURE;
    clnt_geterr(pm.get(), &rpc_createerr.cf_error);
    return nullptr;
  }
  pm.reset();
  if (port == 0) {
    rpc_createerr.cf_stat = RPC_PROGNOTREGISTERED;
    return nullptr;
  }
  addr.sin_port = htons(port);
  return clientOn(addr, prog, vers, timeout);
}
