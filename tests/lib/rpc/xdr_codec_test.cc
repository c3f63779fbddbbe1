// The records of both protocols through the XDR memory stream: exact wire
// bytes where the order matters, round trips (long lists included), and
// clean failure on truncated input.
#include <gtest/gtest.h>
#include <string.h>
#include <termios.h>

#include <string>
#include <vector>

#include "rpc/ingest_rpc.h"
#include "rpc/ternserver.h"
#include "rpc/xdr_list_depth.h"
#include "xdr_text.h"

namespace {

template <class T>
using Codec = bool_t (*)(XDR*, T*);

using Bytes = std::vector<unsigned char>;

template <class T>
Bytes encode(Codec<T> codec, T* obj) {
  Bytes buf(1 << 20);
  XDR x;
  xdrmem_create(&x, reinterpret_cast<char*>(buf.data()), static_cast<u_int>(buf.size()), XDR_ENCODE);
  EXPECT_TRUE(codec(&x, obj));
  buf.resize(xdr_getpos(&x));
  xdr_destroy(&x);
  return buf;
}

// Decodes into *out (zeroed first); the caller releases it with release().
template <class T>
bool decode(Codec<T> codec, const Bytes& bytes, T* out) {
  memset(out, 0, sizeof *out);
  XDR x;
  xdrmem_create(&x, reinterpret_cast<char*>(const_cast<unsigned char*>(bytes.data())),
                static_cast<u_int>(bytes.size()), XDR_DECODE);
  bool ok = codec(&x, out);
  xdr_destroy(&x);
  return ok;
}

template <class T>
void release(Codec<T> codec, T* obj) {
  xdr_free(reinterpret_cast<xdrproc_t>(codec), reinterpret_cast<char*>(obj));
}

// True when bytes decode; what was decoded is released either way.
template <class T>
bool decodes(Codec<T> codec, const Bytes& bytes) {
  T out;
  const bool ok = decode(codec, bytes, &out);
  release(codec, &out);
  return ok;
}

// obj encodes to exactly `want`; the whole decodes to a record that encodes
// to `want` again; every proper prefix fails to decode, and what was decoded
// up to the failure can be released.
template <class T>
void expectWire(Codec<T> codec, T* obj, const Bytes& want) {
  EXPECT_EQ(encode(codec, obj), want);
  T back;
  EXPECT_TRUE(decode(codec, want, &back));
  EXPECT_EQ(encode(codec, &back), want);
  release(codec, &back);
  for (size_t n = 0; n < want.size(); ++n)
    EXPECT_FALSE(decodes(codec, Bytes(want.begin(), want.begin() + static_cast<long>(n)))) << n << " bytes";
}

Bytes words(std::initializer_list<uint32_t> ws) {
  Bytes b;
  for (uint32_t w : ws)
    for (int shift = 24; shift >= 0; shift -= 8) b.push_back(static_cast<unsigned char>(w >> shift));
  return b;
}

char* str(std::string& s) { return &s[0]; }

// Links the nodes into one list, sends it through the codec and back, and
// expects the decoded list to read as the original, node for node.  Returns
// the encoded bytes.
template <class Res, class Node, class Head>
Bytes roundTrip(Codec<Res> codec, Head head, std::vector<Node>& nodes) {
  for (size_t i = 0; i < nodes.size(); ++i) nodes[i].next = i + 1 < nodes.size() ? &nodes[i + 1] : nullptr;
  Res res;
  memset(&res, 0, sizeof res);
  head(res) = nodes.data();
  const Bytes bytes = encode(codec, &res);
  Res back;
  EXPECT_TRUE(decode(codec, bytes, &back));
  EXPECT_EQ(xdr_text::list(head(back)), xdr_text::list(head(res)));
  release(codec, &back);
  return bytes;
}

TEST(ConnectRecord, WireBytes) {
  std::string name = "ab";
  u_int mask[8] = {0x00000001, 0x80000000, 0, 0, 0, 0, 0, 0xdeadbeef};
  connect_t c = {0x1234, str(name), {8, mask}, 1};
  expectWire(xdr_connect_t, &c, words({0x1234, 2, 0x61620000, 8, 0x00000001, 0x80000000, 0, 0, 0, 0, 0, 0xdeadbeef, 1}));
}

// The link of a serial-channel list goes first: all the links, then the
// fields of the last element back to the first.
TEST(SerialChannelList, WireBytesPutTheLinkFirst) {
  std::string fmtA = "x", syncA = "", fmtB = "", syncB = "ab";
  siocfg b = {nullptr, 300, 0x1b0, str(fmtB), str(syncB), 2, 3, 0, 12, ASCII};
  siocfg a = {&b, 9600, CS8, str(fmtA), str(syncA), 1, 10, 3, 0x102, BINARY};
  siocfg_res res;
  res.ierr = 0;
  res.siocfg_res_u.list = &a;
  expectWire(xdr_siocfg_res, &res,
             words({0, 1,                                            // ierr, head present
                    1,                                               // a.next present
                    0,                                               // b.next absent
                    300, 0x1b0, 0, 2, 0x61620000, 2, 3, 0, 12, 0,    // b
                    9600, 0x30, 1, 0x78000000, 0, 1, 10, 3, 0x102, 1}));  // a
  std::string text = "bad";
  res.ierr = 2;
  res.siocfg_res_u.errmsg = str(text);
  expectWire(xdr_siocfg_res, &res, words({2, 3, 0x62616400}));
}

TEST(Lists, ThousandElementsRoundTrip) {
  const int n = 1000;
  std::vector<std::string> text(2 * n);
  std::vector<siocfg> sio(n);
  std::vector<analogcfg> analog(n);
  std::vector<ttl_output_cfg> ttl(n);
  std::vector<etc_hosts_entry> hosts(n);
  std::vector<ingest_connection> conns(n);
  for (int i = 0; i < n; ++i) {
    const u_long u = static_cast<u_long>(i);
    text[2 * i] = "192.0.2." + std::to_string(i % 256);
    text[2 * i + 1] = std::string(static_cast<size_t>(i % 7), 's') + std::to_string(i);
    sio[i] = {nullptr, 1200 * (i % 32), u * 3u, str(text[2 * i + 1]), str(text[2 * i]), static_cast<u_char>(i),
              static_cast<u_char>(i + 1), static_cast<u_char>(i % 9), static_cast<u_short>(i * 61),
              static_cast<datarectype>(i % 4)};
    analog[i] = {nullptr, static_cast<u_char>(i), i * 5 - 100};
    ttl[i] = {i * 10, -i * 3, 2147483647 - i, i % 16, nullptr};
    hosts[i] = {str(text[2 * i]), str(text[2 * i + 1]), nullptr};
    conns[i] = {static_cast<u_short>(40000 + i), 0x7f000001u + u, i % 2, i, -i, 2 * i, 3 * i, 4294967295u - u, u * 7,
                u * 11, nullptr};
  }
  roundTrip(xdr_siocfg_res, [](siocfg_res& r) -> siocfg*& { return r.siocfg_res_u.list; }, sio);

  Bytes bytes = roundTrip(xdr_analogcfg_res, [](analogcfg_res& r) -> analogcfg*& { return r.analogcfg_res_u.list; },
                          analog);
  // ierr, head present, 999 links present, the last absent, then 2 words
  // each, the head's last.
  ASSERT_EQ(bytes.size(), 4u * (2 + n + 2 * n));
  EXPECT_EQ(Bytes(bytes.end() - 8, bytes.end()), words({0, static_cast<uint32_t>(-100)}));

  // The link goes last here: the head's fields, then its link.
  bytes = roundTrip(xdr_ttl_output_cfg_res,
                    [](ttl_output_cfg_res& r) -> ttl_output_cfg*& { return r.ttl_output_cfg_res_u.list; }, ttl);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 28), words({0, 1, 0, 0, 2147483647u, 0, 1}));

  roundTrip(xdr_etc_hosts_res, [](etc_hosts_res& r) -> etc_hosts_entry*& { return r.etc_hosts_res_u.list; }, hosts);

  auto connHead = [](ingest_connection_res& r) -> ingest_connection*& { return r.ingest_connection_res_u.list; };
  bytes = roundTrip(xdr_ingest_connection_res, connHead, conns);
  ASSERT_EQ(bytes.size(), 4u * (2 + 11 * n));
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 56),
            words({0, 1, 40000, 0x7f000001, 0, 0, 0, 0, 0, 4294967295u, 0, 0, 1, 40001}));
  // An error carries nothing after its code.
  ingest_connection_res err;
  err.ierr = -3;
  connHead(err) = conns.data();
  EXPECT_EQ(encode(xdr_ingest_connection_res, &err), words({static_cast<uint32_t>(-3)}));
}

TEST(HostTable, TruncatedListsFailCleanly) {
  std::string a = "192.0.2.1", b = "h";
  etc_hosts_entry second = {str(a), str(b), nullptr}, first = {str(b), str(a), &second};
  etc_hosts_res res;
  res.ierr = 0;
  res.etc_hosts_res_u.list = &first;
  expectWire(xdr_etc_hosts_res, &res,
             words({0, 1, 1, 0x68000000, 9, 0x3139322e, 0x302e322e, 0x31000000, 1, 9, 0x3139322e, 0x302e322e,
                    0x31000000, 1, 0x68000000, 0}));
}

TEST(InputStatus, WireOrder) {
  std::string station = "tower1", port = "/dev/ttyS1";
  input_status st = {12.5f, 3, 86400, str(station), str(port), TRUE};
  input_status_res res;
  res.ierr = 0;
  res.input_status_res_u.status = &st;
  expectWire(xdr_input_status_res, &res,
             words({0, 1, 0x41480000, 3, 86400, 6, 0x746f7765, 0x72310000, 10, 0x2f646576, 0x2f747479, 0x53310000, 1}));
  res.ierr = 5;
  EXPECT_EQ(encode(xdr_input_status_res, &res), words({5}));
}

// A reply announcing a list far longer than any site has is refused, not
// followed down until the stack runs out.
TEST(ListDepth, OverlongChainsAreRefused) {
  const int n = 200000;
  Bytes linkFirst = words({0});  // ierr, then every link present
  Bytes linkLast = words({0, 1});  // ierr, head present, then empty entries
  for (int i = 0; i < n; ++i) {
    const Bytes one = words({1}), entry = words({0, 0, 1});
    linkFirst.insert(linkFirst.end(), one.begin(), one.end());
    linkLast.insert(linkLast.end(), entry.begin(), entry.end());
  }
  EXPECT_FALSE(decodes(xdr_analogcfg_res, linkFirst));
  EXPECT_FALSE(decodes(xdr_etc_hosts_res, linkLast));

  // A list at the bound still passes.
  std::vector<analogcfg> nodes(XDR_LIST_MAX_DEPTH - 1);
  roundTrip(xdr_analogcfg_res, [](analogcfg_res& r) -> analogcfg*& { return r.analogcfg_res_u.list; }, nodes);
}

TEST(ModuleServerResults, ScalarAndStringResults) {
  std::string a = "tern1", b = "archive", c = "/dev/nst0", msg = "no such setting";
  configint_res ci;
  ci.ierr = 0;
  ci.configint_res_u.value = -42;
  expectWire(xdr_configint_res, &ci, words({0, static_cast<uint32_t>(-42)}));
  const Bytes err = words({1, 15, 0x6e6f2073, 0x75636820, 0x73657474, 0x696e6700});  // code, then the text
  ci.ierr = 1;
  ci.configint_res_u.errmsg = str(msg);
  expectWire(xdr_configint_res, &ci, err);
  configstring_res cs = {1, str(msg)};
  expectWire(xdr_configstring_res, &cs, err);

  blazingArchive_res br;
  br.ierr = 0;
  br.blazingArchive_res_u.archive = {str(a), str(b), str(c), 2};
  expectWire(xdr_blazingArchive_res, &br,
             words({0, 5, 0x7465726e, 0x31000000, 7, 0x61726368, 0x69766500, 9, 0x2f646576, 0x2f6e7374, 0x30000000, 2}));
  datarectype t = BINARY_END_SYNC;
  EXPECT_EQ(encode(xdr_datarectype, &t), words({3}));
}

}  // namespace
