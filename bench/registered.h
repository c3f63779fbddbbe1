// Whether an RPC program is registered, version 1 over TCP, with the port
// mapper on 127.0.0.1: how the load benches wait for the Ingests they
// started to serve.
#ifndef HERON_BENCH_REGISTERED_H
#define HERON_BENCH_REGISTERED_H

#include <rpc/rpc.h>
#include <rpc/rpcb_clnt.h>

inline bool registered(rpcprog_t prog) {
  struct netconfig* nconf = getnetconfigent("tcp");
  char addr[64];
  struct netbuf nb = {sizeof addr, 0, addr};
  const bool ok = nconf && rpcb_getaddr(prog, 1, nconf, &nb, "127.0.0.1");
  if (nconf) freenetconfigent(nconf);
  return ok;
}

#endif
