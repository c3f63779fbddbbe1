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
  bool (*decode)(XDR*, void*);
  xdrproc_t proc;
};

// Each codec is called with its own type; xdr_free calls it as the library
// does.
template <class T, bool_t (*F)(XDR*, T*)>
Codec codec() {
  return {[](XDR* x, void* obj) { return F(x, static_cast<T*>(obj)) != 0; }, reinterpret_cast<xdrproc_t>(F)};
}

const Codec kCodecs[] = {
    codec<int, xdr_int>(),  // the ingest procedures, rdate_1 and rgmtmsecs_1
    codec<ingest_connection_res, xdr_ingest_connection_res>(),
    codec<input_status_res, xdr_input_status_res>(),
    codec<siocfg_res, xdr_siocfg_res>(),
    codec<configint_res, xdr_configint_res>(),
    codec<configstring_res, xdr_configstring_res>(),
    codec<analogcfg_res, xdr_analogcfg_res>(),
    codec<blazingArchive_res, xdr_blazingArchive_res>(),
    codec<ttl_output_cfg_res, xdr_ttl_output_cfg_res>(),
    codec<etc_hosts_res, xdr_etc_hosts_res>(),
    codec<char*, heron_xdr_wrapstring>(),  // getternserverenv_1
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
  c.decode(&x, obj.bytes);
  xdr_destroy(&x);
  xdr_free(c.proc, obj.bytes);
  return 0;
}
