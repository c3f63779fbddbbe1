// Server side of the connection calls (INGEST_CONNECT, INGEST_DISCONNECT,
// INGEST_RESET_CONNECT): their argument decoded and answered, and where a
// client's data socket is.  Data go back only to the address the call came
// from: a server that sent them wherever a caller asked would stream at
// any third party.  The announced name is therefore never looked up (a
// look-up can stall the server for as long as the resolver keeps silent):
// a numeric IPv4 name must be the caller's own address, any other name is
// taken as naming the caller.
#ifndef HERON_INGEST_PEER_H
#define HERON_INGEST_PEER_H

#include <netinet/in.h>

#include <functional>

#include "rpc/ingest_rpc.h"

// The caller's IPv4 address with p's port into *to; false (and why in
// *why, when given) when the caller is not an IPv4 peer or p names
// another numeric address.
bool ingest_peer_address(const connect_t& p, struct svc_req* rq, struct sockaddr_in* to, const char** why = nullptr);

// Decodes the call's connect_t, replies with the int that handle returns
// for it, and frees the argument; a call that does not decode gets the
// decode error.  False when the reply could not be sent.
bool ingest_serve_connect(SVCXPRT* xprt, const std::function<int(const connect_t&)>& handle);

#endif
