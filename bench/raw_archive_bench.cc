// Reading raw-sample archives: FilesRawDataInput + RawDataInputs over page-
// cached files of 20-byte samples, with 1, 4 and 16 inputs, against cat of
// the same files to /dev/null in the same run.
//
//   raw_archive_bench [--benchmark_...]     (HERON_BENCH_MB=1024 by default)
//
// The files (HERON_BENCH_MB megabytes in all, split evenly over the inputs)
// are written to a scratch directory in /tmp before the runs and removed
// afterwards.  Each merge runs in a child process so that its peak resident
// memory ("peak_rss_kB") is its own; "vs_cat" is the merge's throughput as
// a fraction of cat's.
#include <benchmark/benchmark.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "base/Exception.h"
#include "samples/RawDataInputs.h"

namespace {

const int kSampleBytes = 20;
const double kDay = 1795219200.0;  // 2026-11-21 00:00 UTC
std::string scratch;
long totalBytes = 0;

std::string fileName(int ninputs, int k) {
  return scratch + "/in" + std::to_string(ninputs) + "_" + std::to_string(k) + ".raw";
}

// One input's file: samples at 0.8 ms steps from 01:00, each with 14 data
// bytes.
void writeFile(const std::string& path, long bytes) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) {
    perror(path.c_str());
    exit(1);
  }
  std::vector<char> buf(static_cast<size_t>(kSampleBytes) * 65536);
  const long n = bytes / kSampleBytes;
  for (long i = 0; i < n;) {
    size_t used = 0;
    for (; i < n && used < buf.size(); ++i, used += kSampleBytes) {
      const uint32_t tt = htonl(static_cast<uint32_t>(3600000 + i * 4 / 5));
      char* p = &buf[used];
      memcpy(p, &tt, 4);
      p[4] = static_cast<char>(i % 5);
      p[5] = kSampleBytes - RawSample::headLen;
      for (int k = 6; k < kSampleBytes; ++k) p[k] = static_cast<char>(i + k);
    }
    if (fwrite(buf.data(), 1, used, f) != used) {
      perror(path.c_str());
      exit(1);
    }
  }
  if (fclose(f) != 0) {
    perror(path.c_str());
    exit(1);
  }
}

double now() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

// Runs f in a child; returns its wall time, and its peak resident memory
// and the number it reported through *result.
template <typename F>
double inChild(F f, long* result, long* maxrssKb) {
  int p[2];
  if (pipe(p) != 0) abort();
  const double t0 = now();
  pid_t pid = fork();
  if (pid == 0) {
    close(p[0]);
    long r = f();
    if (write(p[1], &r, sizeof r) != sizeof r) _exit(2);
    _exit(0);
  }
  close(p[1]);
  long r = -1;
  if (read(p[0], &r, sizeof r) != sizeof r) r = -1;
  close(p[0]);
  int status;
  struct rusage ru;
  wait4(pid, &status, 0, &ru);
  const double t = now() - t0;
  *result = r;
  *maxrssKb = ru.ru_maxrss;
  return t;
}

double catTime(int ninputs) {
  std::vector<std::string> args{"cat"};
  for (int k = 0; k < ninputs; ++k) args.push_back(fileName(ninputs, k));
  long r, rss;
  return inChild(
      [&args]() -> long {
        int devnull = open("/dev/null", O_WRONLY);
        dup2(devnull, 1);
        std::vector<char*> argv;
        for (std::string& a : args) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        execvp("cat", argv.data());
        _exit(127);
      },
      &r, &rss);
}

long mergeAll(int ninputs) {
  RawDataInputs merge;
  for (int k = 0; k < ninputs; ++k) {
    std::string name = fileName(ninputs, k);
    std::vector<char*> names{&name[0]};
    merge.addInput(new FilesRawDataInput(k, names, {kDay + 3600}));
  }
  long n = 0, checksum = 0;
  try {
    for (;;) {
      double t;
      RawSample* s = merge.getSample(t);
      if (s == nullptr) continue;
      checksum += s->chan;
      ++n;
    }
  } catch (const oru::EOFException&) {
  }
  benchmark::DoNotOptimize(checksum);
  return n;
}

void BM_ReadArchive(benchmark::State& state) {
  const int ninputs = static_cast<int>(state.range(0));
  double mergeSecs = 0, catSecs = 0;
  long samples = 0, rss = 0;
  for (auto _ : state) {
    catSecs += catTime(ninputs);
    long n, maxrss;
    const double t = inChild([ninputs]() { return mergeAll(ninputs); }, &n, &maxrss);
    if (n != totalBytes / kSampleBytes) state.SkipWithError("samples lost");
    mergeSecs += t;
    samples += n;
    rss = std::max(rss, maxrss);
    state.SetIterationTime(t);
  }
  const double bytes = static_cast<double>(samples) * kSampleBytes;
  state.counters["samples_per_s"] = benchmark::Counter(static_cast<double>(samples) / mergeSecs);
  state.counters["MB_per_s"] = benchmark::Counter(bytes / mergeSecs / 1e6);
  state.counters["cat_MB_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * totalBytes / catSecs / 1e6);
  state.counters["vs_cat"] = benchmark::Counter(catSecs / mergeSecs);
  state.counters["peak_rss_kB"] = benchmark::Counter(static_cast<double>(rss));
}
BENCHMARK(BM_ReadArchive)->Arg(1)->Arg(4)->Arg(16)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  char tmpl[] = "/tmp/heron-archive-bench-XXXXXX";
  if (mkdtemp(tmpl) == nullptr) return perror("mkdtemp"), 1;
  scratch = tmpl;
  // A site whose time tags are milliseconds of the day.
  if (system(("mkdir -p " + scratch + "/projects/p/o").c_str()) != 0) return 1;
  std::ofstream(scratch + "/projects/p/o/channel_config") << "timetag msecs ;\n";
  setenv("HERON", scratch.c_str(), 1);
  setenv("PROJECT", "p", 1);
  setenv("OPS", "o", 1);
  const char* mb = getenv("HERON_BENCH_MB");
  totalBytes = (mb ? atol(mb) : 1024) * 1024L * 1024L;
  totalBytes -= totalBytes % (16L * kSampleBytes);
  for (int n : {1, 4, 16})
    for (int k = 0; k < n; ++k) writeFile(fileName(n, k), totalBytes / n);
  // The inputs log each file they open; that is not what is measured.
  if (freopen("/dev/null", "w", stderr) == nullptr) return 1;
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return system(("rm -rf " + scratch).c_str()) == 0 ? 0 : 1;
}
