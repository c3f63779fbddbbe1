#include "rpc_server_loop.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/rpcb_clnt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace rpctest {

namespace {

volatile sig_atomic_t stopFlag = 0;
sigset_t unblocked;

void onStop(int) { stopFlag = 1; }

[[noreturn]] void die(const char* what) {
  fprintf(stderr, "test server: %s: %s\n", what, strerror(errno));
  exit(2);
}

// rpcbind keeps one address per program, version and transport; this
// server's is 127.0.0.1 and its port.
bool setAddress(rpcprog_t prog, rpcvers_t vers, unsigned short port) {
  struct netconfig* nconf = getnetconfigent("tcp");
  if (nconf == nullptr) return false;
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_port = htons(port);
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  struct netbuf nb;
  nb.buf = &sin;
  nb.len = nb.maxlen = sizeof sin;
  rpcb_unset(prog, vers, nullptr);
  bool ok = rpcb_set(prog, vers, nconf, &nb);
  freenetconfigent(nconf);
  return ok;
}

unsigned short localPort(int fd) {
  struct sockaddr_in sin;
  socklen_t len = sizeof sin;
  if (getsockname(fd, reinterpret_cast<struct sockaddr*>(&sin), &len) != 0) die("getsockname");
  return ntohs(sin.sin_port);
}

}  // namespace

void setUpSignals() {
  struct sigaction sa;
  memset(&sa, 0, sizeof sa);
  sa.sa_handler = onStop;
  sigemptyset(&sa.sa_mask);
  if (sigaction(SIGTERM, &sa, nullptr) != 0 || sigaction(SIGINT, &sa, nullptr) != 0) die("sigaction");
  signal(SIGPIPE, SIG_IGN);
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  if (sigprocmask(SIG_BLOCK, &stops, &unblocked) != 0) die("sigprocmask");
  sigdelset(&unblocked, SIGTERM);
  sigdelset(&unblocked, SIGINT);
}

bool stopRequested() { return stopFlag != 0; }
const sigset_t* waitMask() { return &unblocked; }

bool registerPort(rpcprog_t prog, rpcvers_t vers, int listenfd) {
  return setAddress(prog, vers, localPort(listenfd));
}

void unregister(rpcprog_t prog, rpcvers_t vers) { rpcb_unset(prog, vers, nullptr); }

SVCXPRT* serveOnLoopback(rpcprog_t prog, rpcvers_t vers, Dispatch dispatch) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) die("socket");
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof sin);
  sin.sin_family = AF_INET;
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<struct sockaddr*>(&sin), sizeof sin) != 0) die("bind");
  if (listen(fd, 16) != 0) die("listen");
  SVCXPRT* xprt = svc_vc_create(fd, 0, 0);
  if (xprt == nullptr) die("svc_vc_create");
  // Dispatch table only: the address is registered below, as 127.0.0.1.
  if (!svc_reg(xprt, prog, vers, dispatch, nullptr)) die("svc_reg");
  if (!setAddress(prog, vers, localPort(fd))) {
    fprintf(stderr, "test server: cannot register program %#lx with rpcbind\n",
            static_cast<unsigned long>(prog));
    exit(2);
  }
  return xprt;
}

namespace {
long long nowMillis() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}
}  // namespace

void runLoop(int tickMillis, const std::function<void()>& tick) {
  long long due = nowMillis() + tickMillis;
  while (!stopFlag) {
    struct timespec wait;
    struct timespec* timeout = nullptr;
    if (tick) {
      long long left = due - nowMillis();
      if (left < 0) left = 0;
      wait.tv_sec = static_cast<time_t>(left / 1000);
      wait.tv_nsec = static_cast<long>(left % 1000) * 1000000L;
      timeout = &wait;
    }
    int n = ppoll(svc_pollfd, svc_max_pollfd, timeout, &unblocked);
    if (n < 0) {
      if (errno == EINTR) continue;
      die("ppoll");
    }
    if (n > 0) svc_getreq_poll(svc_pollfd, n);
    if (tick && nowMillis() >= due) {
      tick();
      due = nowMillis() + tickMillis;
    }
  }
}

void announceReady() {
  if (printf("ready\n") < 0 || fflush(stdout) != 0) die("announcing readiness");
}

}  // namespace rpctest
