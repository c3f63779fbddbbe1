// An RPC client over a connected TCP socket whose every call ends by one
// deadline: the call's time-out runs from the moment the call starts and is
// not re-armed by anything the server sends.  A server that trickles its
// reply, keeps answering with other calls' ids, or sends junk costs at most
// the time-out; the call then fails with RPC_TIMEDOUT ("RPC: Timed out").
//
// A reply is read whole (at most RPC_REPLY_MAX_BYTES) before it is decoded,
// from memory.  Replies whose header does not decode or whose id is not the
// call's are skipped; a reply record longer than the bound, or a result that
// does not decode, fails the call with RPC_CANTDECODERES, and whatever of
// the result was decoded is released.  A server that closes the connection
// gives RPC_CANTRECV with ECONNRESET.  After a call that did not read its
// whole reply the connection is out of step, and later calls on the same
// client fail with RPC_CANTSEND (ENOTCONN).
//
// Control requests (clnt_control) are not supported: the time-out is given
// once, at creation.  Not for use by more than one thread at a time.
#ifndef HERON_RPC_DEADLINE_CLIENT_H
#define HERON_RPC_DEADLINE_CLIENT_H

#include <rpc/rpc.h>

// Far above any real reply of the ingest or module server.
enum { RPC_REPLY_MAX_BYTES = 1 << 20 };

// A client of prog, version vers on the connected stream socket fd, which
// it owns from now on (clnt_destroy closes it).  Every call waits at most
// `timeout`, whatever time-out the caller passes to clnt_call.  NULL (fd
// closed, rpc_createerr set) when memory runs out.
CLIENT* heron_deadline_client(int fd, rpcprog_t prog, rpcvers_t vers, const struct timeval* timeout);

#endif
