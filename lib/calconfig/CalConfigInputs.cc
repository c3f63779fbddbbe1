// The raw-data side of CalConfig: the inputs of the wanted modules and the
// attachment of each raw sample to its channel configurations.
#include <stdlib.h>

#include "archive/ArchiveConfig.h"
#include "calconfig/CalConfig.h"
#include "calconfig/CalSample.h"
#include "samples/RawDataInputs.h"
#include "samples/Sample.h"

bool CalConfig::ternWanted(int tern) const {
  for (const auto& slot : sidMatrix[static_cast<size_t>(tern)])
    if (!slot.empty()) return true;
  return false;
}

RawDataInputs* CalConfig::newInputs() {
  _inputs.reset(new RawDataInputs);
  return _inputs.get();
}

RawDataInputs& CalConfig::inputs() { return _inputs ? *_inputs : *newInputs(); }

std::vector<std::string> CalConfig::GetArchiveFileNames(const char* tern, long start, long end,
                                                        std::vector<double>& startTimes) const {
  return ArchiveConfig().GetArchiveFileNames(tern, static_cast<double>(start), static_cast<double>(end), startTimes);
}

void CalConfig::openInputs(double start, double end) {
  RawDataInputs* inputs = newInputs();
  const ArchiveConfig archives;
  for (size_t t = 0; t < sidMatrix.size(); ++t) {
    if (!ternWanted(static_cast<int>(t))) continue;
    const char* tern = TernInfo(static_cast<int>(t)).name.c_str();
    std::vector<double> times;
    std::vector<std::string> files = archives.GetArchiveFileNames(tern, start, end, times);
    if (files.empty()) continue;  // nothing archived in the span
    std::vector<char*> names;
    for (std::string& f : files) names.push_back(&f[0]);
    inputs->addInput(new FilesRawDataInput(static_cast<int>(t), names, times));
  }
}

void CalConfig::openInputs(int socketType) {
  RawDataInputs* inputs = newInputs();
  const char* server = getenv("INGEST_SERVER");
  if (!server) server = "heron";
  for (size_t t = 0; t < sidMatrix.size(); ++t) {
    if (!ternWanted(static_cast<int>(t))) continue;
    const char* tern = TernInfo(static_cast<int>(t)).name.c_str();
    inputs->addInput(new IngestRawDataInput(tern, static_cast<int>(t), server, ingestChannels, socketType));
  }
}

int CalConfig::nextTaggedSample(SampleStream<TaggedSampleBase>& stream) {
  if (!_inputs) newInputs();
  const int raw = type(static_cast<TaggedRawSample*>(nullptr));
  for (;;) {
    double t;
    const RawSample* s = _inputs->getTrustedSample(t);
    if (!s) return 0;
    const size_t tern = static_cast<size_t>(s->ternIndex);
    if (tern >= sidMatrix.size()) continue;
    const auto& channels = sidMatrix[tern];
    if (s->chan >= channels.size() || channels[s->chan].empty()) {
      if (ternWanted(static_cast<int>(tern))) ++_unwanted;
      continue;
    }
    for (ChannelConfig* cc : channels[s->chan])
      stream.Push(raw, TaggedRawSample::make(t, static_cast<const char*>(s->data), s->size(), cc));
    return static_cast<int>(channels[s->chan].size());
  }
}

int CalConfig::nextCalibrated(SampleStream<TaggedSampleBase>& stream, DPlist<TaggedSampleBase>& done) {
  const int n = nextTaggedSample(stream);
  calibrate(stream);
  stream >> type(static_cast<FullDataSample*>(nullptr)) >> done;
  return n;
}
