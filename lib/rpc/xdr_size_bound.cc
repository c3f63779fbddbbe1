#include "rpc/xdr_size_bound.h"

namespace {
u_int bounded(const XDR* xdrs, u_int maxsize, u_int bound) {
  return xdrs->x_op == XDR_FREE || maxsize < bound ? maxsize : bound;
}
}  // namespace

extern "C" bool_t heron_xdr_string(XDR* xdrs, char** sp, u_int maxsize) {
  return xdr_string(xdrs, sp, bounded(xdrs, maxsize, XDR_STRING_MAX));
}

extern "C" bool_t heron_xdr_wrapstring(XDR* xdrs, char** sp) { return heron_xdr_string(xdrs, sp, ~0u); }

extern "C" bool_t heron_xdr_array(XDR* xdrs, char** addrp, u_int* sizep, u_int maxsize, u_int elsize,
                                  xdrproc_t elproc) {
  return xdr_array(xdrs, addrp, sizep, bounded(xdrs, maxsize, XDR_ARRAY_MAX), elsize, elproc);
}
