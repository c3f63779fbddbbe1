#include "rpc/ingest_client.h"
#include "rpc/ingest_rpc_client.h"

extern "C" int quit_ingest_server(const char* /*kites_name*/, int kites_number, const char* ingest_server,
                                  ingest_connect* igp) {
  // Decoded but not examined: the call status is what counts.
  static int result;
  // A refused connection means the server is gone, and with it the data
  // connection: that is what was asked for.
  bool refused = false;
  RpcClient clnt = ingest_rpc_client(ingest_server, kites_number, &refused);
  if (clnt == nullptr) return refused ? INGEST_OK : INGEST_ERR_DISCONNECT;
  bool called =
      ingest_rpc_call(clnt.get(), INGEST_DISCONNECT, &igp->param, &result, "INGEST_DISCONNECT failed", &refused);
  return called || refused ? INGEST_OK : INGEST_ERR_DISCONNECT;
}
