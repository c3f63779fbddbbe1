// Conversions per second of linear, poly and sonic_csat3 (despiking and
// tilt on), and of one member of each instrument record family (Campbell
// words, Gill and METEK sonics, NMEA, the LI-7500 record, the rain gauge
// message, the net radiometer field), each called through the registry's
// pointer as the calibration pipeline calls it: sample time, input, output
// array, use index.  The record rows and csat3 also report "values/s", the
// calibrated values a second, to compare decoders whose records carry
// different numbers of values.
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

// A calibration file holding text, for an init to load; "" (and the
// benchmark skipped) when it cannot be written.
std::string tempCal(benchmark::State& state, const char* text) {
  char path[] = "/tmp/calib_bench_XXXXXX";
  int fd = mkstemp(path);
  if (fd < 0) {
    state.SkipWithError("cannot create a calibration file");
    return "";
  }
  const ssize_t n = static_cast<ssize_t>(strlen(text));
  const bool ok = write(fd, text, static_cast<size_t>(n)) == n;
  if (close(fd) != 0 || !ok) {
    unlink(path);
    state.SkipWithError("cannot write the calibration file");
    return "";
  }
  return path;
}

void setValueRate(benchmark::State& state, int nout) {
  state.SetItemsProcessed(state.iterations());
  state.counters["values/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * nout, benchmark::Counter::kIsRate);
}

void BM_sonic_csat3(benchmark::State& state) {
  // One calibration record: offsets, a 3-degree lean, a 10-degree turn.
  std::string path = tempCal(state, "2004 1 00:00 0.05 -0.02 0.01 3 40 10 0\n");
  if (path.empty()) return;
  double tau = 1200, k = 4;
  char mode[] = "despike";
  std::vector<void*> params = {&path[0], &tau, &k, mode};
  FreeCalibInfo(init_use("sonic_csat3", params, 9));
  unlink(path.c_str());
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
  setValueRate(state, 9);
}
BENCHMARK(BM_sonic_csat3);

// Calls a record decoder, initialised for use 0 with params, once per
// iteration over the records in turn, each in a zero-filled room of 256
// bytes as the pipeline hands records over.
void runRecords(benchmark::State& state, const char* name, std::vector<void*> params, int nout,
                const std::vector<std::string>& records) {
  FreeCalibInfo(init_use(name, params, nout));
  calib_func_t f = calib_function(name);
  std::vector<std::vector<char>> rooms;
  for (const std::string& r : records) {
    rooms.emplace_back(256, 0);
    memcpy(rooms.back().data(), r.data(), r.size() < 256 ? r.size() : 256);
  }
  double t = 1072915200.0 + 60;
  std::vector<float> out(static_cast<size_t>(nout));
  size_t i = 0;
  for (auto _ : state) {
    calib_input in;
    in.raw = rooms[i].data();
    double ts = t;
    f(&ts, in, out.data(), 0);
    benchmark::DoNotOptimize(out.data());
    t += 0.05;
    if (++i == rooms.size()) i = 0;
  }
  setValueRate(state, nout);
}

void BM_camp_cr10(benchmark::State& state) {
  // An array of 12 values: low resolution, with a high-resolution one.
  std::string rec("\xfc\x05", 2);
  for (int v = 0; v < 11; ++v) rec += v % 2 ? std::string("\xa1\x2c", 2) : std::string("\x20\x64", 2);
  rec += std::string("\x9c\x30\x3c\x39", 4);
  double id = 5, first = 0;
  runRecords(state, "camp_cr10", {&id, &first}, 12, {rec});
}
BENCHMARK(BM_camp_cr10);

// A Gill message with its checksum: u, v, w, c counts.
std::string gillRecord(int u, int v, int w, int c) {
  const int words[6] = {0, u, v, w, c};
  std::string r("\xba\xba", 2);
  unsigned char x = 0;
  for (int i = 0; i < 5; ++i) {
    const unsigned char hi = static_cast<unsigned char>(words[i] >> 8), lo = static_cast<unsigned char>(words[i]);
    r += static_cast<char>(hi);
    r += static_cast<char>(lo);
    x ^= hi ^ lo;
  }
  return r + static_cast<char>(x);
}

void BM_sonic_gill(benchmark::State& state) {
  std::string path = tempCal(state, "2004 1 00:00 0.05 -0.02 0.01 3 40 10\n");
  if (path.empty()) return;
  double tau = 1200, k = 4;
  std::vector<std::string> recs;
  for (int i = 0; i < 64; ++i) recs.push_back(gillRecord(150 + 3 * i, -70 + i, 40 - i, 34464 + i));
  runRecords(state, "sonic_gill", {&path[0], &tau, &k}, 9, recs);
  unlink(path.c_str());
}
BENCHMARK(BM_sonic_gill);

void BM_sonic_metek(benchmark::State& state) {
  std::string path = tempCal(state, "2004 1 00:00 0.05 -0.02 0.01 3 40 10\n");
  if (path.empty()) return;
  double tau = 1200, k = 4;
  std::vector<std::string> recs;
  char line[64];
  for (int i = 0; i < 64; ++i) {
    snprintf(line, sizeof line, "M:x = %5d y = %5d z = %5d t = %5d\r\n", 150 + 3 * i, -70 + i, 40 - i, 2203 + i);
    recs.push_back(line);
  }
  runRecords(state, "sonic_metek", {&path[0], &tau, &k}, 9, recs);
  unlink(path.c_str());
}
BENCHMARK(BM_sonic_metek);

void BM_gps(benchmark::State& state) {
  runRecords(state, "gps", {}, 6, {"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"});
}
BENCHMARK(BM_gps);

void BM_licor_7500(benchmark::State& state) {
  char fields[] = "Ndx,DiagVal,CO2D,H2OD,Temp,Pres";
  runRecords(state, "licor_7500", {fields}, 6, {"1545\t254\t15.1234\t354.123\t24.5\t101.3\r\n"});
}
BENCHMARK(BM_licor_7500);

void BM_rain_sti700(benchmark::State& state) {
  double rate = 0, accumulation = 1, temperature = 6;
  runRecords(state, "rain_sti700", {&rate, &accumulation, &temperature}, 3,
             {"R- .118 000.709 01** 4999 0044 0062 +25\r\n"});
}
BENCHMARK(BM_rain_sti700);

void BM_rad_net_Q7(benchmark::State& state) {
  double fp = 10, fn = 12, offset = 0, wind = 4;
  char order[] = "big";
  runRecords(state, "rad_net_Q7", {&fp, &fn, order, &offset, &wind}, 2,
             {std::string("\x40\0\0\0\x40\xa0\0\0", 8), std::string("\xbf\x80\0\0\x40\xa0\0\0", 8)});
}
BENCHMARK(BM_rad_net_Q7);

}  // namespace

BENCHMARK_MAIN();
