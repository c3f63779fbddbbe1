// The calibration step of the pipeline: raw samples (TaggedRawSample, kind
// 1) in, calibrated samples (FullDataSample, kind 2) out.
//
// An analog channel's first two bytes are a big-endian signed count:
// volts = count x ADVRANGE / ADDRANGE, and the calibration function gets
// (volts - offset) / gain.  Any other channel's function gets the raw bytes.
//
// Multiplexed sensors put each value on the same data channel and say on
// an index channel which sub-channel it was: a data sample is calibrated
// with the latest index sample taken within one index period (0.99 / rate
// seconds), and waits in the data channel's lastSample for an index that
// has not come yet.  Values whose data id has a time lag leave as samples
// of their own, moved back by the lag.
#ifndef HERON_CALCONFIG_CALSAMPLE_H
#define HERON_CALCONFIG_CALSAMPLE_H

#include "base/SampleStream.h"
#include "calconfig/ChannelConfig.h"
#include "calconfig/TaggedSample.h"

// Released samples are kept for reuse, with their storage, in
// Spares<CalSample>; make() takes one where the constructor would allocate.
class CalSample final : public FullDataSample {
 public:
  // All values of channel cc (its dids), from the raw bytes.
  CalSample(double t, const char* raw, const ChannelConfig* cc);
  // Value isub of a multiplexed channel alone, moved back by its lag.
  CalSample(double t, const char* raw, const ChannelConfig* cc, int isub);
  // Value i of cs alone, moved back by the lag of its data id (which must
  // have a phase).
  CalSample(const CalSample& cs, int i);

  // new CalSample(...) of the same arguments, from a spare when there is one.
  static CalSample* make(double t, const char* raw, const ChannelConfig* cc);
  static CalSample* make(double t, const char* raw, const ChannelConfig* cc, int isub);
  static CalSample* make(const CalSample& cs, int i);

  void release() override { Spares<CalSample>::give(this); }

 private:
  CalSample() : FullDataSample(0.0, 0, nullptr) {}
  static CalSample* spare();
  // The bodies of the constructors, on a sample of any earlier contents.
  void all(double t, const char* raw, const ChannelConfig* cc);
  void one(double t, const char* raw, const ChannelConfig* cc, int isub);
  void lagged(const CalSample& cs, int i);
  // n zero values at time t named by ids.
  void reset(double t, int n, HeronDataId** ids);
};

// A new sample of the values rounded to the nearest integer.
TaggedSample<int>* RoundedSample(TaggedSample<float>& s);

// The data sample (t, raw) of multiplexed channel cc, calibrated by the
// latest sample of its index channel ic; null when it must wait for its
// index (then kept in cc->lastSample) or its index names no wanted value.
CalSample* CalibrateMultiplex(double t, const DataArray<char>& raw, ChannelConfig* cc, ChannelConfig* ic);

// Pops all raw samples of the stream and pushes their calibrated samples.
void calibrate(SampleStream<TaggedSampleBase>& stream);

#endif
