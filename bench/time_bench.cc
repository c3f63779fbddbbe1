// Cost of the per-sample time conversions, and for comparison of reading
// and printing a time as text.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "time/TTConv.h"
#include "time/UTime.h"

namespace {

// A site whose channel_config names the wierd12 tags, the costlier kind.
void makeSite() {
  static bool done = false;
  if (done) return;
  done = true;
  char tmpl[] = "/tmp/heron-bench-XXXXXX";
  if (!mkdtemp(tmpl)) abort();
  const std::string dir = std::string(tmpl) + "/projects/p/o";
  if (system(("mkdir -p " + dir).c_str()) != 0) abort();
  FILE* f = fopen((dir + "/channel_config").c_str(), "w");
  if (!f) abort();
  fputs("timetag wierd12 ;\n", f);
  fclose(f);
  setenv("HERON", tmpl, 1);
  setenv("PROJECT", "p", 1);
  setenv("OPS", "o", 1);
  TTConv::init();
  if (system(("rm -rf " + std::string(tmpl)).c_str()) != 0) abort();
}

void BM_UTimeMsecs(benchmark::State& state) {
  double t = 1.6e9 + 0.123;
  for (auto _ : state) {
    benchmark::DoNotOptimize(UTime::Msecs(t));
    t += 0.05;
  }
}
BENCHMARK(BM_UTimeMsecs);

void BM_TTConvMsecsWierd12(benchmark::State& state) {
  makeSite();
  uint32_t tag = htonl((12345u << 12) | 678u);
  for (auto _ : state) {
    benchmark::DoNotOptimize(TTConv::Msecs(static_cast<long>(tag)));
    tag ^= 0x01000000u;  // vary the low byte of the host value
  }
}
BENCHMARK(BM_TTConvMsecsWierd12);

void BM_UTimeFromText(benchmark::State& state) {
  UTime::setTZ(nullptr);
  for (auto _ : state) benchmark::DoNotOptimize(UTime(0, "2026 nov 22 01:23:45.678").val());
}
BENCHMARK(BM_UTimeFromText);

void BM_UTimeToText(benchmark::State& state) {
  UTime::setTZ(nullptr);
  char buf[64];
  UTime t(1.6e9 + 0.123);
  for (auto _ : state) benchmark::DoNotOptimize(t.to_charstar(buf, sizeof buf, "%Y %m %d %H:%M:%S%3F"));
}
BENCHMARK(BM_UTimeToText);

}  // namespace

BENCHMARK_MAIN();
