#include "rpc/ingest_rpc_client.h"

#include <errno.h>

#include <string>

#include "rpc/ingest_client.h"
#include "base/logit.h"
#include "rpc/rpc_client.h"

RpcClient ingest_rpc_client(const char* ingest_server, int kites_number, bool* refused) {
  struct timeval timeout = {INGEST_CALL_TIMEOUT_SECS, 0};
  rpcprog_t prog = static_cast<rpcprog_t>(INGEST_PROG) + static_cast<rpcprog_t>(kites_number);
  RpcClient clnt(heron_clnt_create(ingest_server, prog, INGEST_VERS, &timeout));
  if (refused != nullptr)
    *refused = clnt == nullptr && rpc_createerr.cf_stat == RPC_SYSTEMERROR &&
               rpc_createerr.cf_error.re_errno == ECONNREFUSED;
  if (clnt == nullptr) logit(LOG_ERR, "%s", clnt_spcreateerror((std::string(ingest_server) + " ingest").c_str()));
  return clnt;
}

bool ingest_rpc_call(CLIENT* clnt, rpcproc_t proc, connect_t* param, int* result, const char* what,
                     bool* refused) {
  struct timeval timeout = {INGEST_CALL_TIMEOUT_SECS, 0};
  enum clnt_stat st = clnt_call(clnt, proc, reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(param),
                                reinterpret_cast<xdrproc_t>(xdr_int), reinterpret_cast<char*>(result), timeout);
  if (refused != nullptr) {
    struct rpc_err e;
    clnt_geterr(clnt, &e);
    // The error number means something only for transport failures.
    *refused = (st == RPC_CANTSEND || st == RPC_CANTRECV || st == RPC_SYSTEMERROR) && e.re_errno == ECONNREFUSED;
  }
  if (st != RPC_SUCCESS) {
    logit(LOG_ERR, "%s", clnt_sperror(clnt, what));
    return false;
  }
  return true;
}
