#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "rpc/chan_subs.h"
#include "rpc/ingest_client.h"
#include "rpc/ingest_rpc_client.h"
#include "base/logit.h"
#include "base/clock.h"

namespace {
// Our own host name as the server should connect back to it: the canonical
// name when the name resolves, else the bare name (the server may still know
// it, or fall back to the caller's address).
char* announcedName() {
  char host[257];
  if (gethostname(host, sizeof host - 1) != 0) return nullptr;
  host[sizeof host - 1] = '\0';
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_flags = AI_CANONNAME;
  struct addrinfo* ai = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &ai) == 0 && ai != nullptr && ai->ai_canonname != nullptr) {
    char* name = strdup(ai->ai_canonname);
    freeaddrinfo(ai);
    return name;
  }
  if (ai != nullptr) freeaddrinfo(ai);
  logit(LOG_WARNING, "gethostbyname(%s): cannot find address", host);
  return strdup(host);
}

// The IPv4 addresses of the ingest server's host.
std::vector<in_addr_t> hostAddresses(const char* host) {
  std::vector<in_addr_t> addrs;
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  struct addrinfo* ai = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &ai) != 0) return addrs;
  for (const struct addrinfo* a = ai; a != nullptr; a = a->ai_next)
    addrs.push_back(reinterpret_cast<const struct sockaddr_in*>(a->ai_addr)->sin_addr.s_addr);
  freeaddrinfo(ai);
  return addrs;
}

// Waits for the server's connection on the listening socket; the accepted
// descriptor, or -1 with errno set (ETIMEDOUT when the server did not come
// in time).  Only a connection from one of the server's addresses is taken:
// anyone else who finds the port is hung up on, and the wait goes on.
int acceptConnectBack(int listenfd, const std::vector<in_addr_t>& server) {
  long long deadline = heron::monotonicMs() + INGEST_CONNECT_BACK_SECS * 1000LL;
  for (;;) {
    long long left = deadline - heron::monotonicMs();
    if (left <= 0) {
      errno = ETIMEDOUT;
      return -1;
    }
    struct pollfd p = {listenfd, POLLIN, 0};
    int n = poll(&p, 1, static_cast<int>(left));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) continue;
    struct sockaddr_in peer;
    socklen_t len = sizeof peer;
    int fd = accept4(listenfd, reinterpret_cast<struct sockaddr*>(&peer), &len, SOCK_CLOEXEC);
    if (fd < 0 && errno != EINTR && errno != ECONNABORTED && errno != EAGAIN) return -1;
    if (fd < 0) continue;
    if (peer.sin_family == AF_INET &&
        std::find(server.begin(), server.end(), peer.sin_addr.s_addr) != server.end())
      return fd;
    close(fd);
  }
}

// Gives up a half-made handle: nothing of it may stay open or allocated.
// errno is kept for the caller's message.
ingest_connect* fail(ingest_connect* igp, int sock, int code, int* err) {
  int saved = errno;
  if (sock >= 0) close(sock);
  free_ingest_connect(igp);
  *err = code;
  errno = saved;
  return nullptr;
}

}  // namespace

extern "C" ingest_connect* call_ingest_server(const char* /*kites_name*/, int kites_number,
                                              const char* ingest_server, const uint32_t* channels,
                                              int dgram_ok, int* err) {
  if (number_of_chans(channels) == 0) {
    *err = INGEST_ERR_NO_CHANNELS;
    return nullptr;
  }
  ingest_connect* igp = static_cast<ingest_connect*>(calloc(1, sizeof(ingest_connect)));
  if (igp == nullptr) return fail(nullptr, -1, INGEST_ERR_SYSTEM, err);
  igp->socketfd = -1;

  igp->param.name = announcedName();
  if (igp->param.name == nullptr) return fail(igp, -1, INGEST_ERR_SYSTEM, err);
  igp->param.sock_is_dgram = dgram_ok;

  // A listening socket never blocks: a connection given up between the
  // wait and the accept must not hang us.
  int sock = socket(AF_INET, (dgram_ok ? SOCK_DGRAM : SOCK_STREAM | SOCK_NONBLOCK) | SOCK_CLOEXEC, 0);
  if (sock < 0) return fail(igp, -1, INGEST_ERR_SYSTEM, err);
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_addr.s_addr = htonl(INADDR_ANY);
  sin.sin_port = 0;  // the system picks the port
  socklen_t len = sizeof sin;
  int type = 0;
  socklen_t typelen = sizeof type;
  if (bind(sock, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0 ||
      getsockname(sock, reinterpret_cast<struct sockaddr*>(&sin), &len) != 0 ||
      getsockopt(sock, SOL_SOCKET, SO_TYPE, &type, &typelen) != 0 ||
      (type == SOCK_STREAM && listen(sock, 5) != 0))
    return fail(igp, sock, INGEST_ERR_SYSTEM, err);
  igp->param.s_port = ntohs(sin.sin_port);

  igp->param.channels.channels_val = static_cast<u_int*>(malloc(CHAN_MASK_WORDS * sizeof(u_int)));
  if (igp->param.channels.channels_val == nullptr) return fail(igp, sock, INGEST_ERR_SYSTEM, err);
  memcpy(igp->param.channels.channels_val, channels, CHAN_MASK_WORDS * sizeof(u_int));
  igp->param.channels.channels_len = CHAN_MASK_WORDS;

  RpcClient clnt = ingest_rpc_client(ingest_server, kites_number, nullptr);
  if (clnt == nullptr) return fail(igp, sock, INGEST_ERR_CONNECT, err);
  int result = 0;
  bool called = ingest_rpc_call(clnt.get(), INGEST_CONNECT, &igp->param, &result, "INGEST_CONNECT failed", nullptr);
  clnt.reset();
  if (!called) return fail(igp, sock, INGEST_ERR_CONNECT, err);

  if (type == SOCK_STREAM) {
    int fd = acceptConnectBack(sock, hostAddresses(ingest_server));
    if (fd < 0) return fail(igp, sock, INGEST_ERR_SYSTEM, err);
    close(sock);
    igp->socketfd = fd;
  } else {
    igp->socketfd = sock;
  }
  *err = INGEST_OK;
  return igp;
}

extern "C" void free_ingest_connect(ingest_connect* igp) {
  if (igp == nullptr) return;
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&igp->param));
  free(igp);
}
