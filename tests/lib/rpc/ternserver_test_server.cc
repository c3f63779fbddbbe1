// The acquisition-module server as far as the library asks it: its
// environment (GETTERNSERVERENV), served from NAME=VALUE arguments; a
// variable it does not have reads as "".  Other procedures are refused as
// unavailable.
//
//   ternserver_test_server [NAME=VALUE ...]
//
// Registers with the rpcbind on 127.0.0.1, prints "ready" and serves until
// SIGTERM or SIGINT, when it withdraws its registration.
#include <stdio.h>
#include <string.h>

#include <map>
#include <string>

#include "rpc/ternserver.h"
#include "rpc_server_loop.h"

namespace {

std::map<std::string, std::string> environment;

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
  svc_sendreply(xprt, reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&text));
  svc_freeargs(xprt, reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(&name));
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* eq = strchr(argv[i], '=');
    if (eq == nullptr || eq == argv[i]) {
      fprintf(stderr, "usage: %s [NAME=VALUE ...]\n", argv[0]);
      return 2;
    }
    environment[std::string(argv[i], static_cast<size_t>(eq - argv[i]))] = eq + 1;
  }
  rpctest::serve(rpctest::listenRegistered(TERNSERVER), TERNSERVER, dispatch, 0, nullptr);
  return 0;
}
