// Conversions per second of linear, poly and sonic_csat3 (despiking and
// tilt on), each called through the registry's pointer as the calibration
// pipeline calls it: sample time, input, output array, use index.
#include <benchmark/benchmark.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "calib/calib_func.h"

namespace {

CalibInfo* init_use(const char* name, std::vector<void*>& params, int nout) {
  calib_init_t init = init_function(name);
  return init(0, 1, params.data(), static_cast<int>(params.size()), nout);
}

// Calls an analog conversion, initialised for use 0, once per iteration with
// a slowly changing voltage, as the pipeline calls it.
void runVoltageConversion(benchmark::State& state, const char* name, std::vector<void*> params) {
  FreeCalibInfo(init_use(name, params, 1));
  calib_func_t f = calib_function(name);
  double t = 1.0e9;
  float out[1];
  float x = 0.0f;
  for (auto _ : state) {
    calib_input in;
    in.volts = x;
    f(&t, in, out, 0);
    benchmark::DoNotOptimize(out[0]);
    x += 0.001f;
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_linear(benchmark::State& state) {
  double slope = 2.5, intcpt = -1.0;
  runVoltageConversion(state, "linear", {&slope, &intcpt});
}
BENCHMARK(BM_linear);

void BM_poly(benchmark::State& state) {
  char unit[] = "degC";
  double a[4] = {1.0, -0.5, 0.25, 0.01};
  runVoltageConversion(state, "poly", {unit, &a[0], &a[1], &a[2], &a[3]});
}
BENCHMARK(BM_poly);

void BM_sonic_csat3(benchmark::State& state) {
  // One calibration record: offsets, a 3-degree lean, a 10-degree turn.
  char path[] = "/tmp/calib_bench_XXXXXX";
  int fd = mkstemp(path);
  if (fd < 0) {
    state.SkipWithError("cannot create a calibration file");
    return;
  }
  const char cal[] = "2004 1 00:00 0.05 -0.02 0.01 3 40 10 0\n";
  if (write(fd, cal, sizeof cal - 1) != static_cast<ssize_t>(sizeof cal - 1)) {
    close(fd);
    unlink(path);
    state.SkipWithError("cannot write the calibration file");
    return;
  }
  close(fd);
  double tau = 1200, k = 4;
  char mode[] = "despike";
  std::vector<void*> params = {path, &tau, &k, mode};
  FreeCalibInfo(init_use("sonic_csat3", params, 9));
  unlink(path);
  calib_func_t f = calib_function("sonic_csat3");

  // A turbulent series with an occasional spike, as records.
  std::mt19937 rng(1);
  std::normal_distribution<double> gauss(0.0, 1.0);
  const size_t n = 4096;
  std::vector<short> words(5 * n);
  double x[4] = {0, 0, 0, 0};
  for (size_t i = 0; i < n; ++i) {
    for (double& v : x) v = 0.95 * v + 0.31 * gauss(rng);
    const bool spike = i % 500 == 250;
    words[5 * i] = static_cast<short>(1500 + 300 * x[0] + (spike ? 4000 : 0));
    words[5 * i + 1] = static_cast<short>(-700 + 300 * x[1]);
    words[5 * i + 2] = static_cast<short>(400 + 150 * x[2]);
    words[5 * i + 3] = static_cast<short>(5000 + 200 * x[3]);
    words[5 * i + 4] = static_cast<short>((i + 1) % 64);
  }
  double t = 1072915200.0;
  float out[9];
  size_t i = 0;
  for (auto _ : state) {
    calib_input in;
    in.raw = reinterpret_cast<const char*>(&words[5 * i]);
    double ts = t;
    f(&ts, in, out, 0);
    benchmark::DoNotOptimize(out);
    t += 0.05;
    if (++i == n) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_sonic_csat3);

}  // namespace

BENCHMARK_MAIN();
