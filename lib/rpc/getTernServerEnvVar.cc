#include "rpc/getTernServerEnvVar.h"

#include <stdlib.h>

#include "base/Exception.h"
#include "rpc/rpc_client.h"
#include "rpc/ternserver.h"
#include "rpc/xdr_size_bound.h"

namespace {

const char* serverHost() {
  const char* host = getenv("CONFIG_SERVER");
  if (host == nullptr) host = getenv("INGEST_SERVER");
  if (host == nullptr) host = "heron";
  return host;
}

// The RPC library's texts may end in a newline meant for a terminal; an
// exception message (and the log line made from it) should not.
std::string trimmed(const char* text) {
  std::string s(text != nullptr ? text : "");
  while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
  return s;
}

}  // namespace

std::string getTernServerEnvVar(const char* name) {
  const char* host = serverHost();
  // The module server answers within 25 seconds or not at all.
  const struct timeval timeout = {25, 0};
  RpcClient clnt(heron_clnt_create(host, TERNSERVER, TERNSERVERVERS, &timeout));
  if (clnt == nullptr)
    throw oru::IOException("ternserver rpc connection", host, trimmed(clnt_spcreateerror(host)).c_str());

  char* arg = const_cast<char*>(name);  // the stub's argument is not const, but is only read
  char** res = getternserverenv_1(&arg, clnt.get());
  // The text is taken while the client lives: it reads the client's error.
  if (res == nullptr)
    throw oru::IOException("ternserver rpc connection", host, trimmed(clnt_sperror(clnt.get(), host)).c_str());
  clnt.reset();
  std::string value(*res != nullptr ? *res : "");
  // The library's xdr_wrapstring frees nothing over 9000 bytes: it checks
  // its own bound before it releases.
  xdr_free(reinterpret_cast<xdrproc_t>(heron_xdr_wrapstring), reinterpret_cast<char*>(res));
  return value;
}
