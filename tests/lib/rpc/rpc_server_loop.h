// The serving loop shared by the test servers: registration with the local
// rpcbind on 127.0.0.1 only, a poll loop that ends cleanly on SIGTERM or
// SIGINT (withdrawing the registration), and an optional periodic tick.
#ifndef HERON_TESTS_RPC_SERVER_LOOP_H
#define HERON_TESTS_RPC_SERVER_LOOP_H

#include <rpc/rpc.h>
#include <signal.h>

#include <functional>

namespace rpctest {

using Dispatch = void (*)(struct svc_req*, SVCXPRT*);

// Listens on 127.0.0.1 (any port) and registers program/version with rpcbind
// for "tcp", replacing a stale registration.  Exits the process with a message
// on failure.
SVCXPRT* serveOnLoopback(rpcprog_t prog, rpcvers_t vers, Dispatch dispatch);

// Registers an already listening TCP socket, served by the caller, under
// program/version with rpcbind.  Returns false on failure.
bool registerPort(rpcprog_t prog, rpcvers_t vers, int listenfd);

// Withdraws program/version from rpcbind.
void unregister(rpcprog_t prog, rpcvers_t vers);

// Blocks SIGTERM and SIGINT (they are taken only inside the loop) and ignores
// SIGPIPE.  Call before announcing readiness.
void setUpSignals();

// True once SIGTERM or SIGINT arrived.
bool stopRequested();

// The signal mask to wait with (ppoll): SIGTERM and SIGINT unblocked.
const sigset_t* waitMask();

// Serves requests until SIGTERM or SIGINT.  When tick is set it runs every
// tickMillis milliseconds.  Returns normally so the caller can unregister.
void runLoop(int tickMillis, const std::function<void()>& tick);

// Tells the starting test that the server is registered: one line on stdout.
void announceReady();

}  // namespace rpctest

#endif
