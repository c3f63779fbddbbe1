#include "rpc_server_loop.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <rpc/rpcb_clnt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

namespace rpctest {
namespace {

volatile sig_atomic_t stopFlag = 0;
sigset_t unblocked;

void onStop(int) { stopFlag = 1; }

[[noreturn]] void die(const char* what) {
  fprintf(stderr, "test server: %s: %s\n", what, strerror(errno));
  exit(2);
}

bool_t nothing(XDR*, void*) { return TRUE; }

}  // namespace

bool answerPing(struct svc_req* rq, SVCXPRT* xprt) {
  if (rq->rq_proc != NULLPROC) return false;
  svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(nothing), nullptr);
  return true;
}

void catchStops() {
  struct sigaction sa = {};
  sa.sa_handler = onStop;
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  if (sigaction(SIGTERM, &sa, nullptr) != 0 || sigaction(SIGINT, &sa, nullptr) != 0 ||
      signal(SIGPIPE, SIG_IGN) == SIG_ERR || sigprocmask(SIG_BLOCK, &stops, &unblocked) != 0)
    die("signals");
  sigdelset(&unblocked, SIGTERM);
  sigdelset(&unblocked, SIGINT);
}

int listenRegistered(rpcprog_t prog) {
  catchStops();
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in sin = {};
  sin.sin_family = AF_INET;
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof sin;
  if (fd < 0 || bind(fd, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0 || listen(fd, 16) != 0 ||
      getsockname(fd, reinterpret_cast<struct sockaddr*>(&sin), &len) != 0)
    die("listen");
  // rpcbind keeps one address per program, version and transport: ours is
  // 127.0.0.1 and this port.
  struct netconfig* nconf = getnetconfigent("tcp");
  struct netbuf nb = {sizeof sin, sizeof sin, &sin};
  rpcb_unset(prog, 1, nullptr);
  if (nconf == nullptr || !rpcb_set(prog, 1, nconf, &nb)) die("registering with rpcbind");
  freenetconfigent(nconf);
  return fd;
}

void unregister(rpcprog_t prog) { rpcb_unset(prog, 1, nullptr); }

void announceReady() {
  if (printf("ready\n") < 0 || fflush(stdout) != 0) die("announcing readiness");
}

bool wait(struct pollfd* fds, nfds_t n, int timeoutMillis) {
  struct timespec ts = {timeoutMillis / 1000, (timeoutMillis % 1000) * 1000000L};
  while (!stopFlag) {
    int got = ppoll(fds, n, timeoutMillis < 0 ? nullptr : &ts, &unblocked);
    if (got >= 0) return !stopFlag;
    if (errno != EINTR) die("ppoll");
  }
  return false;
}

void serve(int listenfd, rpcprog_t prog, void (*dispatch)(struct svc_req*, SVCXPRT*)) {
  SVCXPRT* xprt = svc_vc_create(listenfd, 0, 0);
  // The dispatch table only: rpcbind already has our address.
  if (xprt == nullptr || !svc_reg(xprt, prog, 1, dispatch, nullptr)) die("svc_reg");
  announceReady();
  while (wait(svc_pollfd, static_cast<nfds_t>(svc_max_pollfd), -1)) svc_getreq_poll(svc_pollfd, svc_max_pollfd);
  unregister(prog);
  svc_unreg(prog, 1);
  svc_destroy(xprt);
}

}  // namespace rpctest
