// Samples on their way through the calibration pipeline, kept in
// SampleStream<TaggedSampleBase> lists and shared by reference count:
//
//   TaggedSampleBase   a time (seconds since 1970 UTC)
//   TaggedSample<T>    ... and an array of values
//   TaggedRawSample    ... the raw bytes of one module channel, with the
//                      channel's configuration (kind 1 in a stream)
//   FullDataSample     ... calibrated floats, each with its data id
//                      (kind 2; CalSample.h makes them)
#ifndef HERON_CALCONFIG_TAGGEDSAMPLE_H
#define HERON_CALCONFIG_TAGGEDSAMPLE_H

#include <stdio.h>
#include <string.h>

#include "base/DPlist.h"
#include "base/DataArray.h"
#include "base/FreeList.h"
#include "calconf/HeronDataIds.h"

class ChannelConfig;

class TaggedSampleBase : public SampleBase {
 public:
  explicit TaggedSampleBase(double t) : ttag(t) {}
  // Streams keep samples in time order.
  bool operator<(const TaggedSampleBase& o) const { return ttag < o.ttag; }

  double ttag;
};

template <class T>
class TaggedSample : public TaggedSampleBase {
 public:
  // n values, zero.
  TaggedSample(double t, int n) : TaggedSampleBase(t), data(n) { data.setNbytes(n * static_cast<int>(sizeof(T))); }
  TaggedSample(double t, const DataArray<T>& values) : TaggedSampleBase(t), data(values) {}
  TaggedSample(double t, const T* values, int n) : TaggedSampleBase(t) { data.copyFrom(values, n); }

  int size() const { return data.size(); }

  DataArray<T> data;
};

// Raw bytes of one module channel, attached to one configuration of that
// channel (which it does not own).  The storage of data always holds at
// least kRecordRoom bytes, zero past the sample's own: a conversion that
// reads a record of its own length never reads past a short sample.
// Released samples are kept for reuse, with their storage, in
// Spares<TaggedRawSample>.
class TaggedRawSample final : public TaggedSample<char> {
 public:
  static const int kRecordRoom = 256;  // the longest record a conversion reads

  TaggedRawSample(double t, const char* raw, int n, ChannelConfig* c) : TaggedSample<char>(t, 0), cc(c) {
    assign(raw, n);
  }

  // The same as new TaggedRawSample(t, raw, n, c), from a spare when there
  // is one.
  static TaggedRawSample* make(double t, const char* raw, int n, ChannelConfig* c) {
    TaggedRawSample* s = Spares<TaggedRawSample>::take();
    if (!s) return new TaggedRawSample(t, raw, n, c);
    s->ttag = t;
    s->assign(raw, n);
    s->cc = c;
    return s;
  }
  void release() override { Spares<TaggedRawSample>::give(this); }

  ChannelConfig* cc;

 private:
  // Grown storage comes zeroed, so only the earlier sample's bytes past the
  // new one's end need clearing.
  void assign(const char* raw, int n) {
    const int was = data.getNbytes();
    data.expand(kRecordRoom);
    data.copyFrom(raw, n);
    const int now = data.getNbytes();
    if (was > now) memset(static_cast<char*>(data) + now, 0, static_cast<size_t>(was - now));
  }
};

// The forms FullDataSample::Output writes.
enum outputFormat { BIN = 0, HMS = 1, MSEC = 2, HOUR = 3, BINCOLUMN = 4, ASCIICOLUMN = 5, NETCDF = 6 };

// Calibrated values; info names the data id of each (not owned; a null
// entry is a value nobody asked for).
class FullDataSample : public TaggedSample<float> {
 public:
  FullDataSample(double t, int n, HeronDataId** ids) : TaggedSample<float>(t, n), ngood(n), info(ids) {}
  FullDataSample(double t, const float* values, int n, HeronDataId** ids)
      : TaggedSample<float>(t, values, n), ngood(n), info(ids) {}

  void SetInfo(HeronDataId** ids) { info = ids; }

  // Writes the sample without a record end:
  //   BIN        0xFFFF, milliseconds of the day (4-byte int), then per
  //              value with a data id: its Index() (2 bytes) and the value
  //              as a double; host byte order
  //   HMS        "hh:mm:ss.sss " then each value by formats[i] or " %11.5g"
  //   MSEC, ASCIICOLUMN   "%8d " milliseconds, values as HMS
  //   HOUR       "%09.6f " hours of the day, values as HMS
  //   BINCOLUMN  ttag as a double, then every value as a float
  // Any other format is a programming error: logged, and the process ends
  // with status 1.  formats may be null.
  void Output(FILE* fp, outputFormat fmt, const char* const* formats) const;

  int ngood;
  HeronDataId** info;
};

// The kinds of samples in a SampleStream<TaggedSampleBase>.
inline int type(TaggedRawSample*) { return 1; }
inline int type(FullDataSample*) { return 2; }

#endif
