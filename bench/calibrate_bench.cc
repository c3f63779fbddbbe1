// The calibration pipeline on the example site scaled up to an hour of data
// (three modules, 92 samples and 256 values a second), measured three ways in
// the same run over the same page-cached archive files:
//
//   BM_RawMerge       FilesRawDataInput + RawDataInputs alone
//   BM_MergeAttach    ... and CalConfig::nextTaggedSample (sidMatrix lookup,
//                     one TaggedRawSample per configuration), samples dropped
//   BM_EndToEnd       ... and calibrate(), calibrated samples dropped
//
//   calibrate_bench [--benchmark_...]
//
// The cost of calibrate() alone is BM_EndToEnd less BM_MergeAttach.  Rates
// are per CPU second of the benchmark thread ("samples/s" raw samples,
// "values/s" calibrated values with a data id).  Before the runs the
// example site is copied to a scratch install root in /tmp and
// examples/make_raw_data.py writes an hour of archives into its raw folder
// (found through archive_config's $HERON); the root is removed afterwards.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "base/Exception.h"
#include "archive/ArchiveConfig.h"
#include "calconfig/CalConfig.h"
#include "calconfig/CalSample.h"
#include "samples/RawDataInputs.h"
#include "scaled_site.h"

namespace {

const double kStart = 1795262400.0;  // 2026-11-21 12:00 UTC, the example's start
const int kSeconds = 3600;
const long kSamples = 92L * kSeconds;   // per second: 61 of tern1, 10 of tern2, 21 of tern3
const long kValues = 256L * kSeconds;   // as the generator's truth.txt counts them
const int kRaw = 1, kCalibrated = 2;    // sample kinds in the stream

CalConfig* config;  // made once: reading the site's files is not measured

void setRates(benchmark::State& state, long samples, long values) {
  state.counters["samples/s"] = benchmark::Counter(static_cast<double>(samples), benchmark::Counter::kIsRate);
  if (values >= 0)
    state.counters["values/s"] = benchmark::Counter(static_cast<double>(values), benchmark::Counter::kIsRate);
}

void BM_RawMerge(benchmark::State& state) {
  long samples = 0;
  for (auto _ : state) {
    RawDataInputs merge;
    const ArchiveConfig archives;
    for (const std::string& tern : config->AllTernNames()) {
      std::vector<double> times;
      std::vector<std::string> files = archives.GetArchiveFileNames(tern.c_str(), kStart, kStart + kSeconds, times);
      std::vector<char*> names;
      for (std::string& f : files) names.push_back(&f[0]);
      merge.addInput(new FilesRawDataInput(TernList::TernIndex(tern.c_str()), names, times));
    }
    long n = 0, checksum = 0;
    try {
      for (;;) {
        double t;
        const RawSample* s = merge.getSample(t);
        if (s == nullptr) continue;
        checksum += s->chan;
        ++n;
      }
    } catch (const oru::EOFException&) {
    }
    benchmark::DoNotOptimize(checksum);
    if (n != kSamples) state.SkipWithError("raw samples lost or added");
    samples += n;
  }
  setRates(state, samples, -1);
}

// The pipeline over the hour; calibrates when asked.  Returns the raw
// samples taken and counts the calibrated values into *values.
long pipeline(bool calibrating, long* values) {
  config->openInputs(kStart, kStart + kSeconds);
  SampleStream<TaggedSampleBase> stream;
  long samples = 0;
  try {
    for (;;) {
      samples += config->nextTaggedSample(stream);
      if (calibrating) calibrate(stream);
      DPlist<TaggedSampleBase> done;
      stream >> (calibrating ? kCalibrated : kRaw) >> done;
      if (!calibrating) continue;
      for (DPlist_iter<TaggedSampleBase> it = done.begin(); it(); ++it) {
        const FullDataSample* s = static_cast<FullDataSample*>(*it);
        for (int i = 0; i < s->size(); ++i)
          if (s->info[i]) ++*values;
      }
    }
  } catch (const oru::EOFException&) {
  }
  return samples;
}

void BM_MergeAttach(benchmark::State& state) {
  long samples = 0, values = 0;
  for (auto _ : state) {
    if (pipeline(false, &values) != kSamples) state.SkipWithError("raw samples lost or added");
    samples += kSamples;
  }
  setRates(state, samples, -1);
}

void BM_EndToEnd(benchmark::State& state) {
  long samples = 0, values = 0;
  for (auto _ : state) {
    long v = 0;
    if (pipeline(true, &v) != kSamples || v != kValues) state.SkipWithError("samples or values lost or added");
    samples += kSamples;
    values += v;
  }
  setRates(state, samples, values);
}

BENCHMARK(BM_RawMerge)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_MergeAttach)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_EndToEnd)->Unit(benchmark::kMillisecond)->Repetitions(3);

}  // namespace

int main(int argc, char** argv) {
  ScaledSite site(kSeconds);
  if (!site.ok()) return 1;
  int status = 0;
  try {
    CalConfig cfg;
    cfg.PreRegisterAllDataIds();
    cfg.InitializeFunctions();
    config = &cfg;
    // The inputs log each file they open; that is not what is measured.
    if (freopen("/dev/null", "w", stderr) == nullptr) {
      perror("/dev/null");
      status = 1;
    } else {
      benchmark::Initialize(&argc, argv);
      benchmark::RunSpecifiedBenchmarks();
      benchmark::Shutdown();
    }
  } catch (const oru::Exception& e) {
    fprintf(stderr, "%s\n", e.what());
    status = 1;
  }
  return status;
}
