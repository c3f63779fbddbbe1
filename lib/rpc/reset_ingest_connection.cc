#include <stdlib.h>
#include <string.h>

#include "rpc/chan_subs.h"
#include "rpc/ingest_client.h"
#include "rpc/ingest_rpc_client.h"

extern "C" int reset_ingest_connection(const char* /*kites_name*/, int kites_number, const char* ingest_server,
                                       ingest_connect* igp, const uint32_t* channels) {
  static int result;  // decoded but not examined
  // The handle takes the new mask first, whatever the server says.
  if (igp->param.channels.channels_len < CHAN_MASK_WORDS || igp->param.channels.channels_val == nullptr) {
    void* words = realloc(igp->param.channels.channels_val, CHAN_MASK_WORDS * sizeof(u_int));
    if (words == nullptr) return INGEST_ERR_RESET;
    igp->param.channels.channels_val = static_cast<u_int*>(words);
  }
  memcpy(igp->param.channels.channels_val, channels, CHAN_MASK_WORDS * sizeof(u_int));
  igp->param.channels.channels_len = CHAN_MASK_WORDS;

  RpcClient clnt = ingest_rpc_client(ingest_server, kites_number, nullptr);
  if (clnt == nullptr) return INGEST_ERR_RESET;
  bool called = ingest_rpc_call(clnt.get(), INGEST_RESET_CONNECT, &igp->param, &result,
                                "INGEST_RESET_CONNECT failed", nullptr);
  return called ? INGEST_OK : INGEST_ERR_RESET;
}
