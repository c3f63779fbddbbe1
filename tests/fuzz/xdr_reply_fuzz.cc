// The decoders of every result the clients receive, from the ingest server
// and from the module server, on any bytes: byte 0 chooses the result type,
// the rest is the reply body.  Whatever decodes, in whole or in part, is
// released again (leaks show), and no announced size may make the decoder
// allocate beyond the bounds of xdr_size_bound.h (libFuzzer's malloc limit
// shows that).
#include <rpc/rpc.h>
#include <stdint.h>
#include <string.h>

#include "rpc/ingest_rpc.h"
#include "rpc/ternserver.h"
#include "rpc/xdr_size_bound.h"

namespace {

struct Codec {
  xdrproc_t proc;
  size_t size;
};

template <class T>
Codec codec(bool_t (*f)(XDR*, T*)) {
  return {reinterpret_cast<xdrproc_t>(f), sizeof(T)};
}

const Codec kCodecs[] = {
    codec(xdr_int),  // the ingest procedures, rdate_1 and rgmtmsecs_1
    codec(xdr_ingest_connection_res), codec(xdr_input_status_res), codec(xdr_siocfg_res),
    codec(xdr_configint_res),         codec(xdr_configstring_res), codec(xdr_analogcfg_res),
    codec(xdr_blazingArchive_res),    codec(xdr_ttl_output_cfg_res), codec(xdr_etc_hosts_res),
    codec(heron_xdr_wrapstring),  // getternserverenv_1
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const Codec& c = kCodecs[data[0] % (sizeof kCodecs / sizeof kCodecs[0])];
  union {
    long double align;
    char bytes[256];
  } obj;
  memset(&obj, 0, sizeof obj);
  XDR x;
  xdrmem_create(&x, const_cast<char*>(reinterpret_cast<const char*>(data + 1)), static_cast<u_int>(size - 1),
                XDR_DECODE);
  c.proc(&x, obj.bytes);
  xdr_destroy(&x);
  xdr_free(c.proc, obj.bytes);
  return 0;
}
