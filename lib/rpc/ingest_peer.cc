#include "rpc/ingest_peer.h"

#include <netdb.h>
#include <string.h>
#include <sys/socket.h>

bool ingest_peer_address(const connect_t& p, struct svc_req* rq, struct sockaddr_in* to) {
  struct addrinfo hints = {}, *ai = nullptr;
  hints.ai_family = AF_INET;
  if (getaddrinfo(p.name, nullptr, &hints, &ai) == 0) {
    memcpy(to, ai->ai_addr, sizeof *to);
    freeaddrinfo(ai);
  } else {
    const struct netbuf* caller = svc_getrpccaller(rq->rq_xprt);
    if (caller->len < sizeof *to) return false;
    memcpy(to, caller->buf, sizeof *to);
  }
  to->sin_port = htons(p.s_port);
  return true;
}

bool ingest_serve_connect(SVCXPRT* xprt, const std::function<int(const connect_t&)>& handle) {
  connect_t p = {};
  if (!svc_getargs(xprt, reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&p))) {
    svcerr_decode(xprt);
    return true;
  }
  int result = handle(p);
  const bool sent = svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(xdr_int), reinterpret_cast<char*>(&result));
  svc_freeargs(xprt, reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&p));
  return sent;
}
