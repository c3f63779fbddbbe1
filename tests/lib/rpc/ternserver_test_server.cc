// The acquisition-module server as far as the library asks it: its
// environment (GETTERNSERVERENV), served from NAME=VALUE arguments; a
// variable it does not have reads as "".  Other procedures are refused as
// unavailable.  NAME:N gives NAME a value of N letters "x" (longer than a
// command line's argument may be).
//
//   ternserver_test_server [NAME=VALUE | NAME:N ...]
//
// Registers with the rpcbind on 127.0.0.1, prints "ready" and serves until
// SIGTERM or SIGINT, when it withdraws its registration.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>

#include "rpc/ternserver.h"
#include "rpc_server_loop.h"

namespace {

std::map<std::string, std::string> environment;

// A string of any length: the library's xdr_wrapstring stops at 9000 bytes.
bool_t anyString(XDR* x, char** s) { return xdr_string(x, s, ~0u); }

void dispatch(struct svc_req* rq, SVCXPRT* xprt) {
  if (rpctest::answerPing(rq, xprt)) return;
  if (rq->rq_proc != GETTERNSERVERENV) {
    svcerr_noproc(xprt);
    return;
  }
  char* name = nullptr;
  if (!svc_getargs(xprt, reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&name))) {
    svcerr_decode(xprt);
    return;
  }
  std::string value = environment[name];
  char* text = &value[0];
  svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(anyString), reinterpret_cast<char*>(&text));
  svc_freeargs(xprt, reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&name));
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* eq = strpbrk(argv[i], "=:");
    if (eq == nullptr || eq == argv[i]) {
      fprintf(stderr, "usage: %s [NAME=VALUE | NAME:N ...]\n", argv[0]);
      return 2;
    }
    std::string& value = environment[std::string(argv[i], static_cast<size_t>(eq - argv[i]))];
    value = *eq == '=' ? std::string(eq + 1) : std::string(strtoul(eq + 1, nullptr, 10), 'x');
  }
  rpctest::serve(rpctest::listenRegistered(TERNSERVER), TERNSERVER, dispatch);
  return 0;
}
