// The waits of the remote-procedure clients.  A program whose signals come
// in through a descriptor (its reactor's, base/Reactor.h) can have them
// taken during a call's waits too, and have the call end as soon as one has
// asked the program to stop: a supervisor then answers SIGINT at once even
// while a server is slow.  Deadlines count on the monotonic clock
// (base/clock.h).
#ifndef HERON_RPC_WAIT_H
#define HERON_RPC_WAIT_H

#include <poll.h>

#ifdef __cplusplus
extern "C" {
#endif

// fd: readable while a signal waits for the program, -1 for plain waits;
// stop: called when fd is readable, takes what waits there (so that fd is
// no longer readable) and returns nonzero when the call is to end.
void rpc_wait_signals(int fd, int (*stop)(void));

// poll of one descriptor for at most ms milliseconds, also watching that
// descriptor.  Returns as poll does; a wait that stop allowed to go on ends
// early with -1 and errno EINTR, and one that stop ends also sets *stopped.
int rpc_wait(struct pollfd* p, int ms, int* stopped);

#ifdef __cplusplus
}
#endif

#endif
