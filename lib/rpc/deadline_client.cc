#include "rpc/deadline_client.h"

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <new>
#include <string>

#include "base/clock.h"
#include "rpc/rpc_wait.h"

namespace {
struct Deadline {
  long long at;
  // Milliseconds left, rounded up; 0 once the deadline has passed.
  int left() const {
    const long long ms = at - heron::monotonicMs();
    return ms <= 0 ? 0 : static_cast<int>(ms > 3600000 ? 3600000 : ms);
  }
};

struct DeadlineClient {
  CLIENT clnt;  // first: the library hands us back this pointer
  int fd;
  rpcprog_t prog;
  rpcvers_t vers;
  long long waitMillis;
  uint32_t xid;
  bool outOfStep = false;
  struct rpc_err err;
};

DeadlineClient* self(CLIENT* clnt) { return static_cast<DeadlineClient*>(clnt->cl_private); }

enum clnt_stat fail(DeadlineClient* c, enum clnt_stat st, int errnum = 0) {
  c->err.re_status = st;
  c->err.re_errno = errnum;
  return st;
}

// Waits until fd is ready for `events` or the deadline passes.
enum clnt_stat ready(DeadlineClient* c, short events, const Deadline& d, enum clnt_stat onError) {
  for (;;) {
    const int left = d.left();
    if (left == 0) return fail(c, RPC_TIMEDOUT);
    struct pollfd p = {c->fd, events, 0};
    int stopped;
    const int n = rpc_wait(&p, left, &stopped);
    if (stopped) return fail(c, RPC_INTR, EINTR);
    if (n > 0) return RPC_SUCCESS;
    if (n < 0 && errno != EINTR) return fail(c, onError, errno);
  }
}

enum clnt_stat sendAll(DeadlineClient* c, const char* buf, size_t len, const Deadline& d) {
  while (len > 0) {
    enum clnt_stat st = ready(c, POLLOUT, d, RPC_CANTSEND);
    if (st != RPC_SUCCESS) return st;
    const ssize_t n = send(c->fd, buf, len, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n < 0) return fail(c, RPC_CANTSEND, errno);
    buf += n;
    len -= static_cast<size_t>(n);
  }
  return RPC_SUCCESS;
}

// Appends exactly len bytes from the socket to out.
enum clnt_stat recvExactly(DeadlineClient* c, std::string* out, size_t len, const Deadline& d) {
  char buf[16384];
  while (len > 0) {
    enum clnt_stat st = ready(c, POLLIN, d, RPC_CANTRECV);
    if (st != RPC_SUCCESS) return st;
    const ssize_t n = recv(c->fd, buf, len < sizeof buf ? len : sizeof buf, MSG_DONTWAIT);
    if (n == 0) return fail(c, RPC_CANTRECV, ECONNRESET);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n < 0) return fail(c, RPC_CANTRECV, errno);
    out->append(buf, static_cast<size_t>(n));
    len -= static_cast<size_t>(n);
  }
  return RPC_SUCCESS;
}

// One whole record (all its fragments) into rec.
enum clnt_stat recvRecord(DeadlineClient* c, std::string* rec, const Deadline& d) {
  rec->clear();
  for (bool last = false; !last;) {
    std::string mark;
    enum clnt_stat st = recvExactly(c, &mark, 4, d);
    if (st != RPC_SUCCESS) return st;
    uint32_t word;
    memcpy(&word, mark.data(), 4);
    word = ntohl(word);
    last = (word & 0x80000000u) != 0;
    const size_t len = word & 0x7fffffffu;
    if (len > RPC_REPLY_MAX_BYTES - rec->size()) return fail(c, RPC_CANTDECODERES);
    st = recvExactly(c, rec, len, d);
    if (st != RPC_SUCCESS) return st;
  }
  return RPC_SUCCESS;
}

// Runs codec on obj (encoding or decoding, never releasing).  The library
// makes the call, as it makes every other call of a codec: codecs have many
// types and xdrproc_t is none of them.  With a pointer that is not null,
// xdr_reference only calls the codec.
bool_t runCodec(XDR* x, xdrproc_t codec, void* obj) {
  caddr_t p = static_cast<caddr_t>(obj);
  return xdr_reference(x, &p, 0, codec);
}

enum clnt_stat sendCall(DeadlineClient* c, rpcproc_t proc, xdrproc_t xargs, void* args, const Deadline& d) {
  struct rpc_msg msg;
  memset(&msg, 0, sizeof msg);
  msg.rm_xid = c->xid;
  msg.rm_direction = CALL;
  msg.rm_call.cb_rpcvers = RPC_MSG_VERSION;
  msg.rm_call.cb_prog = c->prog;
  msg.rm_call.cb_vers = c->vers;
  msg.rm_call.cb_proc = proc;
  msg.rm_call.cb_cred = _null_auth;
  msg.rm_call.cb_verf = _null_auth;
  const unsigned long size = xdr_sizeof(reinterpret_cast<xdrproc_t>(xdr_callmsg), &msg) + xdr_sizeof(xargs, args);
  if (size == 0 || size > RPC_REPLY_MAX_BYTES) return fail(c, RPC_CANTENCODEARGS);
  std::string buf(4 + size, '\0');
  XDR x;
  xdrmem_create(&x, &buf[4], static_cast<u_int>(size), XDR_ENCODE);
  const bool encoded = xdr_callmsg(&x, &msg) && runCodec(&x, xargs, args);
  const u_int used = xdr_getpos(&x);
  xdr_destroy(&x);
  if (!encoded) return fail(c, RPC_CANTENCODEARGS);
  const uint32_t mark = htonl(0x80000000u | used);
  memcpy(&buf[0], &mark, 4);
  return sendAll(c, buf.data(), 4 + used, d);
}

// Stands for the results while the reply header is decoded.
bool_t resultsLater(XDR*, void*) { return TRUE; }

// The reply header, then (when the server accepted the call) the results.
// RPC_SUCCESS with *skip set when the record is no reply to this call.
enum clnt_stat decodeReply(DeadlineClient* c, std::string* rec, xdrproc_t xres, void* res, bool* skip) {
  struct rpc_msg reply;
  memset(&reply, 0, sizeof reply);
  reply.acpted_rply.ar_verf = _null_auth;
  reply.acpted_rply.ar_results.where = nullptr;
  reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(resultsLater);
  XDR x;
  xdrmem_create(&x, &(*rec)[0], static_cast<u_int>(rec->size()), XDR_DECODE);
  *skip = !xdr_replymsg(&x, &reply) || reply.rm_xid != c->xid;
  enum clnt_stat st = RPC_SUCCESS;
  if (!*skip) {
    _seterr_reply(&reply, &c->err);
    st = c->err.re_status;
    if (st == RPC_SUCCESS && !runCodec(&x, xres, res)) {
      xdr_free(xres, static_cast<char*>(res));  // nothing half-decoded stays behind
      st = fail(c, RPC_CANTDECODERES);
    }
  }
  xdr_destroy(&x);
  if (reply.acpted_rply.ar_verf.oa_base != nullptr) {
    XDR f;
    xdrmem_create(&f, nullptr, 0, XDR_FREE);
    xdr_opaque_auth(&f, &reply.acpted_rply.ar_verf);
  }
  return st;
}

enum clnt_stat callDeadline(CLIENT* clnt, rpcproc_t proc, xdrproc_t xargs, void* args, xdrproc_t xres, void* res,
                            struct timeval /*ignored: the time-out given at creation*/) {
  DeadlineClient* c = self(clnt);
  memset(&c->err, 0, sizeof c->err);
  if (c->outOfStep) return fail(c, RPC_CANTSEND, ENOTCONN);
  const Deadline d = {heron::monotonicMs() + c->waitMillis};
  ++c->xid;
  enum clnt_stat st = sendCall(c, proc, xargs, args, d);
  std::string rec;
  bool skip = true;
  while (st == RPC_SUCCESS && skip) {
    st = recvRecord(c, &rec, d);
    if (st == RPC_SUCCESS) st = decodeReply(c, &rec, xres, res, &skip);
  }
  // Unless this call's reply was read whole, part of a call or a reply may
  // still be on the way.
  c->outOfStep = skip;
  return st;
}

void abortNothing(CLIENT*) {}

void geterr(CLIENT* clnt, struct rpc_err* e) { *e = self(clnt)->err; }

bool_t freeres(CLIENT*, xdrproc_t xres, void* res) {
  xdr_free(xres, static_cast<char*>(res));
  return TRUE;
}

void destroy(CLIENT* clnt) {
  DeadlineClient* c = self(clnt);
  close(c->fd);
  delete c;
}

bool_t control(CLIENT*, u_int, void*) { return FALSE; }

CLIENT::clnt_ops ops = {callDeadline, abortNothing, geterr, freeres, destroy, control};

}  // namespace

CLIENT* heron_deadline_client(int fd, rpcprog_t prog, rpcvers_t vers, const struct timeval* timeout) {
  DeadlineClient* c = new (std::nothrow) DeadlineClient;
  if (c == nullptr) {
    close(fd);
    rpc_createerr.cf_stat = RPC_SYSTEMERROR;
    rpc_createerr.cf_error.re_errno = ENOMEM;
    return nullptr;
  }
  memset(&c->clnt, 0, sizeof c->clnt);
  memset(&c->err, 0, sizeof c->err);
  c->clnt.cl_auth = authnone_create();
  c->clnt.cl_ops = &ops;
  c->clnt.cl_private = c;
  c->fd = fd;
  c->prog = prog;
  c->vers = vers;
  c->waitMillis = static_cast<long long>(timeout->tv_sec) * 1000 + timeout->tv_usec / 1000;
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  c->xid = static_cast<uint32_t>(getpid()) ^ static_cast<uint32_t>(ts.tv_sec) ^ static_cast<uint32_t>(ts.tv_nsec);
  return &c->clnt;
}
