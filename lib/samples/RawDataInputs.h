// Merges several raw data inputs into one stream of samples in time order.
//
// One sample is kept read ahead from every input; getSample hands out the
// earliest and reads that input's next one.  Among equal times the sample
// read ahead first goes out first.  An input that ends is dropped and the
// others go on; when none is left getSample throws
// oru::EOFException("all inputs", "getSample").  An input that fails
// (oru::IOException) or is interrupted (oru::InterruptedException) is
// dropped too and the exception reaches the caller.  An input with nothing
// to give now, or a framing error, waits on a pending list and is read
// again first on every later call.
//
// Times come from each input's own time-tag guard: a sample it could not
// trust has the time RawDataInput::BIGBANG and goes out at once; callers
// drop such samples, or read through getTrustedSample, which drops them.
#ifndef HERON_RAWDATAINPUTS_H
#define HERON_RAWDATAINPUTS_H

#include <memory>
#include <vector>

#include "samples/Sample.h"

class RawDataInputs {
 public:
  RawDataInputs() : _outsample(new RawSample), _head(nullptr), _ninputs(0) {}

  RawDataInputs(const RawDataInputs&) = delete;
  RawDataInputs& operator=(const RawDataInputs&) = delete;

  // Takes ownership and reads the input's first sample ahead.  An input
  // that has no samples at all is dropped at once; no other input's
  // sample is consumed.  Failures of that first read are thrown on as by
  // getSample.
  void addInput(RawDataInput* in) { addInput(std::unique_ptr<RawDataInput>(in)); }
  void addInput(std::unique_ptr<RawDataInput> in);

  // The next sample in time order and, in t, its time.  The sample stays
  // owned by the merger and is valid until the next call.  Null only when
  // every remaining input is non-blocking and has no data now.
  RawSample* getSample(double& t) {
    // The usual pass, inline: the head (see below) is set and its next
    // sample comes the usual way (RawDataInput::takeUsual).  Anything else
    // takes the full pass, which starts afresh.
    if (Entry* const e = _head) {
      double u;
      if (e->input->takeUsual(_outsample.get(), u)) {
        e->ahead.swap(_outsample);
        t = e->time;
        e->time = u;
        placeFirst(u, false);
        return _outsample.get();
      }
    }
    return fullPass(t);
  }

  // getSample without the samples whose time could not be trusted (time
  // RawDataInput::BIGBANG): those are dropped and counted in untrusted().
  // Samples that wanted(const RawSample&) refuses are skipped first, and
  // not counted.  Null as getSample.
  template <class Wanted>
  RawSample* getTrustedSample(double& t, Wanted wanted) {
    for (;;) {
      RawSample* const s = getSample(t);
      if (s == nullptr) return nullptr;
      if (!wanted(*s)) continue;
      if (t != RawDataInput::BIGBANG) return s;
      ++_untrusted;
    }
  }
  RawSample* getTrustedSample(double& t) {
    return getTrustedSample(t, [](const RawSample&) { return true; });
  }
  // Samples getTrustedSample has dropped for their time.
  long untrusted() const { return _untrusted; }

  // Reads the next sample of input i into its read-ahead slot and puts i
  // in its place in the time order (i stands first, or anywhere when
  // pending is set).  Returns the input's readSample result.
  int readSample(int i, int pending);

  // Deletes input i and its samples; the inputs above it move down one
  // index.
  void removeInput(int i);

  int size() const { return _ninputs; }
  // Input i (0 <= i < size()), still owned by the merger.
  RawDataInput* input(int i) const { return _entries[static_cast<size_t>(i)].input.get(); }

 private:
  // One input, the sample read ahead from it, and that sample's time.
  struct Entry {
    std::unique_ptr<RawDataInput> input;
    std::unique_ptr<RawSample> ahead;
    double time;
  };

  // The input at _seq[0], whose read-ahead time is now t, goes behind
  // every waiting input whose time is not greater, so that equal times go
  // out in the order they were read; pending inputs (there are some when
  // pending is set) stay at the back.  The one placement of both passes,
  // inline for the usual one, which has nothing pending: there the input
  // stays first whenever it is still the earliest (always so with one
  // input), and the search stops at position 1 at the latest.
  void placeFirst(double t, bool pending) {
    if (_ninputs < 2) return;
    int* const seq = _seq.data();
    if (!pending && t < timeOf(seq[1])) return;
    const int i = seq[0];
    int k = _ninputs - 1;
    if (!pending) {
      while (timeOf(seq[k]) > t) --k;
    } else {
      while (k > 0 && (timeOf(seq[k]) > t || isPending(seq[k]))) --k;
    }
    for (int m = 0; m < k; ++m) seq[m] = seq[m + 1];
    seq[k] = i;
    _head = pending ? nullptr : &_entries[static_cast<size_t>(seq[0])];  // as setHead()
  }
  double timeOf(int i) const { return _entries[static_cast<size_t>(i)].time; }
  // Sets _head after any change of the inputs, the order or the pending
  // list.
  void setHead() { _head = _pending.empty() && !_seq.empty() ? &_entries[static_cast<size_t>(_seq[0])] : nullptr; }
  RawSample* fullPass(double& t);
  int readInput(int i);
  void park(int i);
  bool isPending(int i) const;

  std::vector<Entry> _entries;
  // The sample last handed out.  It is exchanged with the read-ahead slot
  // of its input, so samples are never copied, and it belongs to the merger
  // so that it outlives an input that ends on the read behind it.
  std::unique_ptr<RawSample> _outsample;
  // Input indices in ascending order of time; _seq[0] goes out next.
  std::vector<int> _seq;
  std::vector<int> _pending;
  // The entry whose sample goes out next when nothing is pending, else
  // null: all that the usual pass reads besides the input itself.
  Entry* _head;
  // The number of inputs (_entries.size(), kept at hand for the usual pass).
  int _ninputs;
  long _untrusted = 0;
};

#endif
