// What the test servers share: a TCP listener on 127.0.0.1 registered with
// the local rpcbind, signals that end the serving loop cleanly (SIGTERM or
// SIGINT, after which the caller withdraws the registration), and the
// "ready" line that the starting test waits for.
#ifndef HERON_TESTS_RPC_SERVER_LOOP_H
#define HERON_TESTS_RPC_SERVER_LOOP_H

#include <poll.h>
#include <rpc/rpc.h>

namespace rpctest {

// Blocks SIGTERM and SIGINT outside wait() and ignores SIGPIPE.
void catchStops();

// A listening TCP socket on 127.0.0.1 (any port) whose port rpcbind now
// gives for prog, version 1, replacing a stale registration, after
// catchStops().  Exits with status 2 and a message on failure.
int listenRegistered(rpcprog_t prog);

// Withdraws prog, version 1, from rpcbind.
void unregister(rpcprog_t prog);

// Prints the "ready" line.
void announceReady();

// ppoll on fds with SIGTERM and SIGINT let through; false once either has
// arrived (the loop should end).  timeoutMillis < 0 waits without limit.
bool wait(struct pollfd* fds, nfds_t n, int timeoutMillis);

// Answers procedure 0, the ping of every program; true when rq was one.
bool answerPing(struct svc_req* rq, SVCXPRT* xprt);

// Serves the RPC transports of this process with dispatch until SIGTERM or
// SIGINT.
void serve(int listenfd, rpcprog_t prog, void (*dispatch)(struct svc_req*, SVCXPRT*));

}  // namespace rpctest

#endif
