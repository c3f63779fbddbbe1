// Cost of the protocol codecs on the XDR memory stream: a connect_t (sent on
// every connect, reset and disconnect) and serial-channel lists of growing
// length, encoded and decoded.
#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

#include "rpc/ingest_rpc.h"
#include "rpc/ternserver.h"

namespace {

void BM_ConnectRecord(benchmark::State& state) {
  std::string name = "acq1.site.example";
  u_int mask[8] = {0xffffffffu, 0, 0, 0, 0, 0, 0, 1};
  connect_t c = {40000, &name[0], {8, mask}, 0};
  std::vector<char> buf(1024);
  for (auto _ : state) {
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    bool ok = xdr_connect_t(&x, &c);
    u_int len = xdr_getpos(&x);
    xdr_destroy(&x);
    connect_t back;
    memset(&back, 0, sizeof back);
    xdrmem_create(&x, buf.data(), len, XDR_DECODE);
    ok = ok && xdr_connect_t(&x, &back);
    xdr_destroy(&x);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&back));
    if (!ok) state.SkipWithError("codec failed");
  }
}
BENCHMARK(BM_ConnectRecord);

void BM_SerialChannelList(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::string fmt = "%d,%d,%d", sync = "\r\n";
  std::vector<siocfg> nodes(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i)
    nodes[static_cast<size_t>(i)] = {i + 1 < n ? &nodes[static_cast<size_t>(i) + 1] : nullptr, 9600, 060,
                                     &fmt[0], &sync[0], static_cast<u_char>(i), '\n', 3, 0, ASCII};
  siocfg_res res;
  res.ierr = 0;
  res.siocfg_res_u.list = &nodes[0];
  std::vector<char> buf(static_cast<size_t>(n) * 64 + 64);
  for (auto _ : state) {
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    bool ok = xdr_siocfg_res(&x, &res);
    u_int len = xdr_getpos(&x);
    xdr_destroy(&x);
    siocfg_res back;
    memset(&back, 0, sizeof back);
    xdrmem_create(&x, buf.data(), len, XDR_DECODE);
    ok = ok && xdr_siocfg_res(&x, &back);
    xdr_destroy(&x);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_siocfg_res), reinterpret_cast<char*>(&back));
    if (!ok) state.SkipWithError("codec failed");
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_SerialChannelList)->Arg(8)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();
