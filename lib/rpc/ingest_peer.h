// Server side of INGEST_CONNECT: where a client's data socket is.  The
// client announces its host name and port; a name that does not resolve
// falls back to the address the call came from.
#ifndef HERON_INGEST_PEER_H
#define HERON_INGEST_PEER_H

#include <netinet/in.h>

#include "rpc/ingest_rpc.h"

// The IPv4 address and port of p's data socket into *to; false when neither
// the name nor the caller's address gives one.
bool ingest_peer_address(const connect_t& p, struct svc_req* rq, struct sockaddr_in* to);

#endif
