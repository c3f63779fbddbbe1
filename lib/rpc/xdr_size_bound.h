// Bounded strings and counted arrays for the generated codecs and stubs.  The
// interfaces declare their strings and arrays without a bound, and the XDR
// library allocates the announced size before it reads a byte of it: a reply
// of four bytes announcing a string of 4 GiB would make the client allocate
// 4 GiB.  The interface files include this header in the generated codecs
// and client stubs, which then decode every string through heron_xdr_string
// (or heron_xdr_wrapstring) and every counted array through heron_xdr_array:
// a string longer than XDR_STRING_MAX bytes or an array of more than
// XDR_ARRAY_MAX elements is refused (FALSE, as for any malformed input; a
// call then fails with "RPC: Can't decode result").  Encoding is held to the
// same bounds; releasing (XDR_FREE) is never refused.
//
// A string has no bound of its own: a module server's value may be of any
// length, so a string is bounded only by the whole reply that carries it
// (RPC_REPLY_MAX_BYTES, deadline_client.h), which the clients read whole
// before they decode a byte.
#ifndef HERON_XDR_SIZE_BOUND_H
#define HERON_XDR_SIZE_BOUND_H

#include <rpc/rpc.h>

#ifdef __cplusplus
extern "C" {
#endif

// XDR_STRING_MAX is the reply bound (1 MiB); XDR_ARRAY_MAX is far above any
// channel mask (8 words).
enum { XDR_STRING_MAX = 1 << 20, XDR_ARRAY_MAX = 4096 };

bool_t heron_xdr_string(XDR* xdrs, char** sp, u_int maxsize);
bool_t heron_xdr_wrapstring(XDR* xdrs, char** sp);
bool_t heron_xdr_array(XDR* xdrs, char** addrp, u_int* sizep, u_int maxsize, u_int elsize, xdrproc_t elproc);

#ifdef __cplusplus
}
#endif

#ifdef HERON_XDR_BOUNDED_SIZES
#define xdr_string heron_xdr_string
#define xdr_wrapstring heron_xdr_wrapstring
#define xdr_array heron_xdr_array
#endif

#endif
