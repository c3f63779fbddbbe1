#include "rpc/ingest_peer.h"

#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

bool ingest_peer_address(const connect_t& p, struct svc_req* rq, struct sockaddr_in* to, const char** why) {
  const struct netbuf* caller = svc_getrpccaller(rq->rq_xprt);
  struct sockaddr_in from;
  if (caller == nullptr || caller->len < sizeof from) {
    if (why) *why = "the caller has no IPv4 address";
    return false;
  }
  memcpy(&from, caller->buf, sizeof from);
  struct in_addr named;
  if (from.sin_family != AF_INET ||
      (p.name != nullptr && inet_pton(AF_INET, p.name, &named) == 1 && named.s_addr != from.sin_addr.s_addr)) {
    if (why) *why = "data go only to the caller's own address";
    return false;
  }
  *to = from;
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
