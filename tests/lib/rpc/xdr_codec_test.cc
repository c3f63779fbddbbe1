// Lists in replies are chains of optional pointers that the codecs follow one
// level per element: a reply announcing a chain longer than any site has is
// refused, not followed until the stack runs out.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "rpc/ternserver.h"
#include "rpc/xdr_list_depth.h"

namespace {

using Bytes = std::vector<char>;

// head, then `each` repeated, then tail, as XDR words.
Bytes words(size_t repeat, std::initializer_list<uint32_t> head, std::initializer_list<uint32_t> each,
            std::initializer_list<uint32_t> tail = {}) {
  Bytes b;
  auto put = [&b](uint32_t w) {
    for (int shift = 24; shift >= 0; shift -= 8) b.push_back(static_cast<char>(w >> shift));
  };
  for (uint32_t w : head) put(w);
  for (size_t i = 0; i < repeat; ++i)
    for (uint32_t w : each) put(w);
  for (uint32_t w : tail) put(w);
  return b;
}

// Decodes a reply with codec; what was decoded is released either way.
template <class T>
bool decodes(bool_t (*codec)(XDR*, T*), Bytes bytes, T* out) {
  memset(out, 0, sizeof *out);
  XDR x;
  xdrmem_create(&x, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  const bool ok = codec(&x, out);
  xdr_destroy(&x);
  return ok;
}

template <class T>
void release(bool_t (*codec)(XDR*, T*), T* obj) {
  xdr_free(reinterpret_cast<xdrproc_t>(codec), reinterpret_cast<char*>(obj));
}

TEST(ListDepth, OverlongChainsAreRefused) {
  const size_t n = 200000;
  analogcfg_res analog;  // ierr, then every link before any entry
  EXPECT_FALSE(decodes(xdr_analogcfg_res, words(n, {0}, {1}), &analog));
  release(xdr_analogcfg_res, &analog);
  etc_hosts_res hosts;  // ierr, head, then entries each followed by its link
  EXPECT_FALSE(decodes(xdr_etc_hosts_res, words(n, {0, 1}, {0, 0, 1}), &hosts));
  release(xdr_etc_hosts_res, &hosts);

  // A list just within the bound passes, negative 32-bit values intact.
  const size_t most = XDR_LIST_MAX_DEPTH - 1;  // the last entry's empty link counts too
  const uint32_t minus5 = static_cast<uint32_t>(-5);
  ttl_output_cfg_res ttl;
  ASSERT_TRUE(decodes(xdr_ttl_output_cfg_res, words(most - 1, {0, 1}, {minus5, 2, 3, 4, 1}, {minus5, 2, 3, 4, 0}), &ttl));
  size_t seen = 0;
  for (ttl_output_cfg* t = ttl.ttl_output_cfg_res_u.list; t != nullptr; t = t->next, ++seen)
    ASSERT_EQ(t->start, -5);
  EXPECT_EQ(seen, most);
  release(xdr_ttl_output_cfg_res, &ttl);
}

}  // namespace
