// The records of both protocols through the XDR memory stream: exact wire
// bytes where the order matters, round trips (long lists included), and
// clean failure on truncated input.
#include <gtest/gtest.h>
#include <string.h>
#include <termios.h>

#include <string>
#include <vector>

#include "ingest_rpc.h"
#include "ternserver.h"
#include "xdr_list_depth.h"

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

// Every proper prefix of a valid encoding fails to decode, and what was
// decoded up to the failure can be released.
template <class T>
void expectPrefixesFail(Codec<T> codec, const Bytes& whole) {
  for (size_t n = 0; n < whole.size(); ++n) {
    Bytes part(whole.begin(), whole.begin() + static_cast<long>(n));
    T out;
    EXPECT_FALSE(decode(codec, part, &out)) << "prefix of " << n << " bytes";
    release(codec, &out);
  }
}

Bytes words(std::initializer_list<uint32_t> ws) {
  Bytes b;
  for (uint32_t w : ws)
    for (int shift = 24; shift >= 0; shift -= 8) b.push_back(static_cast<unsigned char>(w >> shift));
  return b;
}

char* str(std::string& s) { return &s[0]; }

TEST(ConnectRecord, WireBytes) {
  std::string name = "ab";
  u_int mask[8] = {0x00000001, 0x80000000, 0, 0, 0, 0, 0, 0xdeadbeef};
  connect_t c = {0x1234, str(name), {8, mask}, 1};
  Bytes expected = words({0x1234, 2, 0x61620000, 8, 0x00000001, 0x80000000, 0, 0, 0, 0, 0, 0xdeadbeef, 1});
  EXPECT_EQ(encode(xdr_connect_t, &c), expected);

  connect_t back;
  ASSERT_TRUE(decode(xdr_connect_t, expected, &back));
  EXPECT_EQ(back.s_port, 0x1234);
  EXPECT_STREQ(back.name, "ab");
  ASSERT_EQ(back.channels.channels_len, 8u);
  EXPECT_EQ(memcmp(back.channels.channels_val, mask, sizeof mask), 0);
  EXPECT_EQ(back.sock_is_dgram, 1);
  release(xdr_connect_t, &back);
  expectPrefixesFail(xdr_connect_t, expected);
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
  Bytes expected = words({0, 1,                                         // ierr, head present
                          1,                                            // a.next present
                          0,                                            // b.next absent
                          300, 0x1b0, 0, 2, 0x61620000, 2, 3, 0, 12, 0,  // b
                          9600, 0x30, 1, 0x78000000, 0, 1, 10, 3, 0x102, 1});  // a
  EXPECT_EQ(encode(xdr_siocfg_res, &res), expected);

  siocfg_res back;
  ASSERT_TRUE(decode(xdr_siocfg_res, expected, &back));
  const siocfg* first = back.siocfg_res_u.list;
  ASSERT_NE(first, nullptr);
  ASSERT_NE(first->next, nullptr);
  EXPECT_EQ(first->next->next, nullptr);
  EXPECT_EQ(first->baud, 9600);
  EXPECT_STREQ(first->fmt, "x");
  EXPECT_EQ(first->nbytes, 0x102);
  EXPECT_EQ(first->type, BINARY);
  EXPECT_EQ(first->next->baud, 300);
  EXPECT_STREQ(first->next->sync, "ab");
  release(xdr_siocfg_res, &back);
  expectPrefixesFail(xdr_siocfg_res, expected);

  std::string text = "bad";
  siocfg_res err;
  err.ierr = 2;
  err.siocfg_res_u.errmsg = str(text);
  EXPECT_EQ(encode(xdr_siocfg_res, &err), words({2, 3, 0x62616400}));
}

// Builds linked lists of n elements in vectors that own them.
template <class Node>
void link(std::vector<Node>& nodes) {
  for (size_t i = 0; i + 1 < nodes.size(); ++i) nodes[i].next = &nodes[i + 1];
  if (!nodes.empty()) nodes.back().next = nullptr;
}

template <class Node>
size_t length(const Node* n) {
  size_t len = 0;
  for (; n != nullptr; n = n->next) ++len;
  return len;
}

const int kLong = 1000;

TEST(SerialChannelList, ThousandElementRoundTrip) {
  std::vector<std::string> text(2 * kLong);
  std::vector<siocfg> nodes(kLong);
  for (int i = 0; i < kLong; ++i) {
    text[2 * i] = "fmt" + std::to_string(i);
    text[2 * i + 1] = std::string(static_cast<size_t>(i % 7), 's');
    nodes[i] = {nullptr, 1200 * (i % 32), static_cast<u_long>(i) * 3u, str(text[2 * i]), str(text[2 * i + 1]),
                static_cast<u_char>(i), static_cast<u_char>(i + 1), static_cast<u_char>(i % 9),
                static_cast<u_short>(i * 61), static_cast<datarectype>(i % 4)};
  }
  link(nodes);
  siocfg_res res;
  res.ierr = 0;
  res.siocfg_res_u.list = &nodes[0];
  siocfg_res back;
  ASSERT_TRUE(decode(xdr_siocfg_res, encode(xdr_siocfg_res, &res), &back));
  ASSERT_EQ(length(back.siocfg_res_u.list), static_cast<size_t>(kLong));
  int i = 0;
  for (const siocfg* n = back.siocfg_res_u.list; n != nullptr; n = n->next, ++i) {
    const siocfg& o = nodes[i];
    EXPECT_EQ(n->baud, o.baud);
    EXPECT_EQ(n->c_cflag, o.c_cflag);
    EXPECT_STREQ(n->fmt, o.fmt);
    EXPECT_STREQ(n->sync, o.sync);
    EXPECT_EQ(n->chan, o.chan);
    EXPECT_EQ(n->eom, o.eom);
    EXPECT_EQ(n->nfields, o.nfields);
    EXPECT_EQ(n->nbytes, o.nbytes);
    EXPECT_EQ(n->type, o.type);
  }
  release(xdr_siocfg_res, &back);
}

TEST(AnalogList, ThousandElementRoundTripLinkFirst) {
  std::vector<analogcfg> nodes(kLong);
  for (int i = 0; i < kLong; ++i) nodes[i] = {nullptr, static_cast<u_char>(i), i * 5 - 100};
  link(nodes);
  analogcfg_res res;
  res.ierr = 0;
  res.analogcfg_res_u.list = &nodes[0];
  Bytes bytes = encode(xdr_analogcfg_res, &res);
  // ierr, head present, 999 links present, the last absent, then 2 words each.
  ASSERT_EQ(bytes.size(), 4u * (2 + kLong + 2 * kLong));
  EXPECT_EQ(Bytes(bytes.end() - 8, bytes.end()), words({0, static_cast<uint32_t>(-100)}));  // the head, last
  analogcfg_res back;
  ASSERT_TRUE(decode(xdr_analogcfg_res, bytes, &back));
  int i = 0;
  for (const analogcfg* n = back.analogcfg_res_u.list; n != nullptr; n = n->next, ++i) {
    EXPECT_EQ(n->chan, nodes[i].chan);
    EXPECT_EQ(n->hz, nodes[i].hz);
  }
  EXPECT_EQ(i, kLong);
  release(xdr_analogcfg_res, &back);
}

TEST(TtlOutputList, ThousandElementRoundTrip) {
  std::vector<ttl_output_cfg> nodes(kLong);
  for (int i = 0; i < kLong; ++i) nodes[i] = {i * 10, -i * 3, 2147483647 - i, i % 16, nullptr};
  link(nodes);
  ttl_output_cfg_res res;
  res.ierr = 0;
  res.ttl_output_cfg_res_u.list = &nodes[0];
  Bytes bytes = encode(xdr_ttl_output_cfg_res, &res);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 28), words({0, 1, 0, 0, 2147483647u, 0, 1}));  // link last
  ttl_output_cfg_res back;
  ASSERT_TRUE(decode(xdr_ttl_output_cfg_res, bytes, &back));
  int i = 0;
  for (const ttl_output_cfg* n = back.ttl_output_cfg_res_u.list; n != nullptr; n = n->next, ++i) {
    EXPECT_EQ(n->start, nodes[i].start);
    EXPECT_EQ(n->on, nodes[i].on);
    EXPECT_EQ(n->off, nodes[i].off);
    EXPECT_EQ(n->chan, nodes[i].chan);
  }
  EXPECT_EQ(i, kLong);
  release(xdr_ttl_output_cfg_res, &back);
}

TEST(HostTable, ThousandElementRoundTrip) {
  std::vector<std::string> text(2 * kLong);
  std::vector<etc_hosts_entry> nodes(kLong);
  for (int i = 0; i < kLong; ++i) {
    text[2 * i] = "192.0.2." + std::to_string(i % 256);
    text[2 * i + 1] = "host" + std::to_string(i);
    nodes[i] = {str(text[2 * i]), str(text[2 * i + 1]), nullptr};
  }
  link(nodes);
  etc_hosts_res res;
  res.ierr = 0;
  res.etc_hosts_res_u.list = &nodes[0];
  Bytes bytes = encode(xdr_etc_hosts_res, &res);
  etc_hosts_res back;
  ASSERT_TRUE(decode(xdr_etc_hosts_res, bytes, &back));
  int i = 0;
  for (const etc_hosts_entry* n = back.etc_hosts_res_u.list; n != nullptr; n = n->next, ++i) {
    EXPECT_STREQ(n->addr, nodes[i].addr);
    EXPECT_STREQ(n->name, nodes[i].name);
  }
  EXPECT_EQ(i, kLong);
  release(xdr_etc_hosts_res, &back);
  nodes.resize(3);
  link(nodes);
  expectPrefixesFail(xdr_etc_hosts_res, encode(xdr_etc_hosts_res, &res));
}

TEST(IngestConnectionList, ThousandElementRoundTrip) {
  std::vector<ingest_connection> nodes(kLong);
  for (int i = 0; i < kLong; ++i) {
    u_long u = static_cast<u_long>(i);
    nodes[i] = {static_cast<u_short>(40000 + i), 0x7f000001u + u, i % 2, i, -i, 2 * i, 3 * i,
                4294967295u - u, u * 7, u * 11, nullptr};
  }
  link(nodes);
  ingest_connection_res res;
  res.ierr = 0;
  res.ingest_connection_res_u.list = &nodes[0];
  Bytes bytes = encode(xdr_ingest_connection_res, &res);
  ASSERT_EQ(bytes.size(), 4u * (2 + 11 * kLong));
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 56),
            words({0, 1, 40000, 0x7f000001, 0, 0, 0, 0, 0, 4294967295u, 0, 0, 1, 40001}));
  ingest_connection_res back;
  ASSERT_TRUE(decode(xdr_ingest_connection_res, bytes, &back));
  int i = 0;
  for (const ingest_connection* n = back.ingest_connection_res_u.list; n != nullptr; n = n->next, ++i) {
    const ingest_connection& o = nodes[i];
    EXPECT_EQ(n->port, o.port);
    EXPECT_EQ(n->h_add, o.h_add);
    EXPECT_EQ(n->sock_is_dgram, o.sock_is_dgram);
    EXPECT_EQ(n->writeerr, o.writeerr);
    EXPECT_EQ(n->partialWrites, o.partialWrites);
    EXPECT_EQ(n->blockedWrites, o.blockedWrites);
    EXPECT_EQ(n->unreachable, o.unreachable);
    EXPECT_EQ(n->nsamples, o.nsamples);
    EXPECT_EQ(n->nwrites, o.nwrites);
    EXPECT_EQ(n->nlost, o.nlost);
  }
  EXPECT_EQ(i, kLong);
  release(xdr_ingest_connection_res, &back);

  // An error carries nothing after its code.
  ingest_connection_res err;
  err.ierr = -3;
  err.ingest_connection_res_u.list = &nodes[0];
  EXPECT_EQ(encode(xdr_ingest_connection_res, &err), words({static_cast<uint32_t>(-3)}));
}

TEST(InputStatus, RoundTripAndWireOrder) {
  std::string station = "tower1", port = "/dev/ttyS1";
  input_status st = {12.5f, 3, 86400, str(station), str(port), TRUE};
  input_status_res res;
  res.ierr = 0;
  res.input_status_res_u.status = &st;
  Bytes bytes = encode(xdr_input_status_res, &res);
  EXPECT_EQ(bytes, words({0, 1, 0x41480000, 3, 86400, 6, 0x746f7765, 0x72310000, 10, 0x2f646576, 0x2f747479,
                          0x53310000, 1}));
  input_status_res back;
  ASSERT_TRUE(decode(xdr_input_status_res, bytes, &back));
  ASSERT_NE(back.input_status_res_u.status, nullptr);
  EXPECT_EQ(back.input_status_res_u.status->sampleRate, 12.5f);
  EXPECT_STREQ(back.input_status_res_u.status->port, "/dev/ttyS1");
  EXPECT_EQ(back.input_status_res_u.status->open, TRUE);
  release(xdr_input_status_res, &back);
  expectPrefixesFail(xdr_input_status_res, bytes);

  input_status_res err;
  err.ierr = 5;
  EXPECT_EQ(encode(xdr_input_status_res, &err), words({5}));
}

// A reply announcing a list far longer than any site has is refused, not
// followed down until the stack runs out.
TEST(ListDepth, OverlongChainsAreRefused) {
  const int n = 200000;
  Bytes linkFirst = words({0});  // ierr, then every link present
  for (int i = 0; i < n; ++i) {
    Bytes one = words({1});
    linkFirst.insert(linkFirst.end(), one.begin(), one.end());
  }
  analogcfg_res analog;
  EXPECT_FALSE(decode(xdr_analogcfg_res, linkFirst, &analog));
  release(xdr_analogcfg_res, &analog);

  Bytes linkLast = words({0, 1});  // ierr, head present, then empty entries
  for (int i = 0; i < n; ++i) {
    Bytes one = words({0, 0, 1});
    linkLast.insert(linkLast.end(), one.begin(), one.end());
  }
  etc_hosts_res hosts;
  EXPECT_FALSE(decode(xdr_etc_hosts_res, linkLast, &hosts));
  release(xdr_etc_hosts_res, &hosts);

  // A list at the bound still passes.
  std::vector<analogcfg> nodes(XDR_LIST_MAX_DEPTH - 1);
  link(nodes);
  analogcfg_res res;
  res.ierr = 0;
  res.analogcfg_res_u.list = &nodes[0];
  analogcfg_res back;
  EXPECT_TRUE(decode(xdr_analogcfg_res, encode(xdr_analogcfg_res, &res), &back));
  EXPECT_EQ(length(back.analogcfg_res_u.list), nodes.size());
  release(xdr_analogcfg_res, &back);
}

TEST(ModuleServerResults, ScalarAndStringResultsRoundTrip) {
  std::string a = "tern1", b = "archive", c = "/dev/nst0", msg = "no such setting";

  configint_res ci;
  ci.ierr = 0;
  ci.configint_res_u.value = -42;
  EXPECT_EQ(encode(xdr_configint_res, &ci), words({0, static_cast<uint32_t>(-42)}));
  ci.ierr = 1;
  ci.configint_res_u.errmsg = str(msg);
  configint_res ciBack;
  ASSERT_TRUE(decode(xdr_configint_res, encode(xdr_configint_res, &ci), &ciBack));
  EXPECT_STREQ(ciBack.configint_res_u.errmsg, "no such setting");
  release(xdr_configint_res, &ciBack);

  configstring_res cs = {1, str(msg)};
  configstring_res csBack;
  ASSERT_TRUE(decode(xdr_configstring_res, encode(xdr_configstring_res, &cs), &csBack));
  EXPECT_EQ(csBack.ierr, 1);
  EXPECT_STREQ(csBack.value, "no such setting");
  release(xdr_configstring_res, &csBack);

  blazingArchive job = {str(a), str(b), str(c), 2};
  EXPECT_EQ(encode(xdr_blazingArchive, &job),
            words({5, 0x7465726e, 0x31000000, 7, 0x61726368, 0x69766500, 9, 0x2f646576, 0x2f6e7374, 0x30000000, 2}));
  blazingArchive_res br;
  br.ierr = 0;
  br.blazingArchive_res_u.archive = job;
  blazingArchive_res brBack;
  ASSERT_TRUE(decode(xdr_blazingArchive_res, encode(xdr_blazingArchive_res, &br), &brBack));
  EXPECT_STREQ(brBack.blazingArchive_res_u.archive.tapeDevice, "/dev/nst0");
  EXPECT_EQ(brBack.blazingArchive_res_u.archive.status, 2);
  release(xdr_blazingArchive_res, &brBack);

  datarectype t = BINARY_END_SYNC;
  EXPECT_EQ(encode(xdr_datarectype, &t), words({3}));
}

}  // namespace
