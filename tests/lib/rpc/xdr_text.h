// Text forms of the protocol records, so that whole replies and decoded
// lists compare as one string: one line per list element, its fields in
// declaration order, texts in brackets, small numbers as numbers.
#ifndef HERON_TESTS_RPC_XDR_TEXT_H
#define HERON_TESTS_RPC_XDR_TEXT_H

#include <ostream>
#include <sstream>
#include <string>

#include "rpc/ingest_rpc.h"
#include "rpc/ternserver.h"

namespace xdr_text {

inline void put(std::ostream& os, const char* s) { os << '[' << (s ? s : "(null)") << ']'; }
inline void put(std::ostream& os, char* s) { put(os, static_cast<const char*>(s)); }
inline void put(std::ostream& os, unsigned char c) { os << static_cast<int>(c); }
template <class T>
void put(std::ostream& os, const T& v) {
  os << v;
}

// The values, separated by blanks, as one line.
template <class... T>
std::string fields(const T&... v) {
  std::ostringstream os;
  ((put(os, v), os << ' '), ...);
  std::string line = os.str();
  line.back() = '\n';
  return line;
}

inline std::string node(const siocfg& n) {
  return fields(n.baud, n.c_cflag, n.fmt, n.sync, n.chan, n.eom, n.nfields, n.nbytes, n.type);
}
inline std::string node(const analogcfg& n) { return fields(n.chan, n.hz); }
inline std::string node(const ttl_output_cfg& n) { return fields(n.start, n.on, n.off, n.chan); }
inline std::string node(const etc_hosts_entry& n) { return fields(n.addr, n.name); }
inline std::string node(const ingest_connection& n) {
  return fields(n.port, n.h_add, n.sock_is_dgram, n.writeerr, n.partialWrites, n.blockedWrites, n.unreachable,
                n.nsamples, n.nwrites, n.nlost);
}

template <class Node>
std::string list(const Node* n) {
  std::string text;
  for (; n != nullptr; n = n->next) text += node(*n);
  return text;
}

}  // namespace xdr_text

#endif
