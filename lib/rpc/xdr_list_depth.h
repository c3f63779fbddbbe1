// Bounded linked lists for the generated codecs.  A list travels as a chain
// of optional pointers and the codecs follow it by recursion, one level per
// element, so a malformed or hostile reply announcing a very long list could
// exhaust the stack.  The interface files include this header in the
// generated codecs, which then reach every optional pointer through
// heron_xdr_pointer: it refuses (returns FALSE, as for any malformed input)
// to encode or decode a chain deeper than XDR_LIST_MAX_DEPTH.  Releasing
// (XDR_FREE) is never refused, so whatever was decoded can always be freed.
#ifndef HERON_XDR_LIST_DEPTH_H
#define HERON_XDR_LIST_DEPTH_H

#include <rpc/rpc.h>

#ifdef __cplusplus
extern "C" {
#endif

// Far above any real list of channels, outputs, hosts or connections.
enum { XDR_LIST_MAX_DEPTH = 4096 };

bool_t heron_xdr_pointer(XDR* xdrs, char** objpp, u_int obj_size, xdrproc_t xdr_obj);

#ifdef __cplusplus
}
#endif

#ifdef HERON_XDR_BOUNDED_LISTS
#define xdr_pointer heron_xdr_pointer
#endif

#endif
