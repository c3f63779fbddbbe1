// The waits of the remote-procedure clients.  A program that keeps its
// signals blocked outside its own waits, so that handlers run only there,
// can have them delivered during a call's waits too, and have the call end
// as soon as a handler has asked the program to stop: a supervisor then
// answers SIGINT within a second even while a server is slow.
#ifndef HERON_RPC_WAIT_H
#define HERON_RPC_WAIT_H

#include <poll.h>
#include <signal.h>

#ifdef __cplusplus
extern "C" {
#endif

// mask: the signal mask in force while a client waits (as ppoll takes it);
// stop: asked after a handler interrupted a wait, nonzero ends the call.
// A null mask restores plain waits with the caller's mask.
void rpc_wait_signals(const sigset_t* mask, int (*stop)(void));

// poll of one descriptor for at most ms milliseconds, under that mask.
// Returns as poll does; when a handler ran and stop asks for the end,
// returns -1 with errno EINTR and sets *stopped.
int rpc_wait(struct pollfd* p, int ms, int* stopped);

// Milliseconds of the monotonic clock, which the calls' deadlines count in.
long long rpc_monotonic_ms(void);

#ifdef __cplusplus
}
#endif

#endif
