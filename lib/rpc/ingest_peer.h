// Server side of the connection calls (INGEST_CONNECT, INGEST_DISCONNECT,
// INGEST_RESET_CONNECT): their argument decoded and answered, and where a
// client's data socket is.  The client announces its host name and port; a
// name that does not resolve falls back to the address the call came from.
#ifndef HERON_INGEST_PEER_H
#define HERON_INGEST_PEER_H

#include <netinet/in.h>

#include <functional>

#include "rpc/ingest_rpc.h"

// The IPv4 address and port of p's data socket into *to; false when neither
// the name nor the caller's address gives one.
bool ingest_peer_address(const connect_t& p, struct svc_req* rq, struct sockaddr_in* to);

// Decodes the call's connect_t, replies with the int that handle returns
// for it, and frees the argument; a call that does not decode gets the
// decode error.  False when the reply could not be sent.
bool ingest_serve_connect(SVCXPRT* xprt, const std::function<int(const connect_t&)>& handle);

#endif
