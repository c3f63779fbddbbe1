// Creation of TCP clients of the site's RPC servers.  The server's port is
// asked of the host's port mapper over TCP, and every connection and query
// is bounded by a time-out, so an absent host or a dead port mapper costs at
// most that long.
#ifndef HERON_RPC_CLIENT_H
#define HERON_RPC_CLIENT_H

#include <rpc/rpc.h>

#include <memory>

// A client of program prog, version vers on host, or NULL with rpc_createerr
// set the way the RPC library sets it (clnt_spcreateerror gives the reason:
// unknown host, program not registered, port mapper failure, refused or timed-
// out connection).  Every call on the client ends within `timeout` from its
// start, whatever the server sends (deadline_client.h).  The client owns its
// socket (close-on-exec); clnt_destroy closes it.
CLIENT* heron_clnt_create(const char* host, rpcprog_t prog, rpcvers_t vers, const struct timeval* timeout);

// A client destroyed (and its socket closed) with its owner.
struct RpcClientCloser {
  void operator()(CLIENT* clnt) const { clnt_destroy(clnt); }
};
using RpcClient = std::unique_ptr<CLIENT, RpcClientCloser>;

#endif
