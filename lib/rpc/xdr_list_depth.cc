#include "rpc/xdr_list_depth.h"

namespace {
// Codecs run in one thread at a time per process; the depth is per thread
// anyway, so that a second thread cannot disturb the count.
thread_local int depth = 0;
}  // namespace

extern "C" bool_t heron_xdr_pointer(XDR* xdrs, char** objpp, u_int obj_size, xdrproc_t xdr_obj) {
  if (xdrs->x_op == XDR_FREE) return xdr_pointer(xdrs, objpp, obj_size, xdr_obj);
  if (depth >= XDR_LIST_MAX_DEPTH) return FALSE;
  ++depth;
  bool_t ok = xdr_pointer(xdrs, objpp, obj_size, xdr_obj);
  --depth;
  return ok;
}
