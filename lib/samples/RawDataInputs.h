// Merges several raw data inputs into one stream of samples in time order.
//
// One sample is kept read ahead from every input; getSample hands out the
// earliest and reads that input's next one.  An input that ends is dropped
// and the others go on; when none is left getSample throws
// oru::EOFException("all inputs", "getSample").  An input that fails
// (oru::IOException) or is interrupted (oru::InterruptedException) is
// dropped too and the exception reaches the caller.
//
// Times come from each input's own time-tag guard: a sample it could not
// trust has the time RawDataInput::BIGBANG and goes out at once; callers
// drop such samples.
#ifndef HERON_RAWDATAINPUTS_H
#define HERON_RAWDATAINPUTS_H

#include <vector>

#include "samples/Sample.h"

class RawDataInputs {
 public:
  RawDataInputs() : _front(nullptr), _frontIndex(0), _outsample(new RawSample), _ninputs(0) {}
  // Deletes every input and sample.
  ~RawDataInputs();

  RawDataInputs(const RawDataInputs&) = delete;
  RawDataInputs& operator=(const RawDataInputs&) = delete;

  // Takes ownership and reads the input's first sample ahead.  An input
  // that has no samples at all is dropped at once; no other input's
  // sample is consumed.  Failures of that first read are thrown on as by
  // getSample.
  void addInput(RawDataInput* in);

  // The next sample in time order and, in t, its time.  The sample stays
  // owned by the merger and is valid until the next call.  Null only when
  // every remaining input is non-blocking and has no data now.
  RawSample* getSample(double& t) {
    // The usual pass, inline: nothing is pending, the earliest input is a
    // file input and its next sample comes the usual way (takeUsual).
    // Anything else takes the full pass, which starts afresh.
    FilesRawDataInput* const f = _front;
    if (f != nullptr) {
      RawSample* const next = _outsample;
      double u;
      if (f->takeUsual(next, u)) {
        const int i = _frontIndex;
        RawSample* const out = _samples[i];
        _samples[i] = next;
        _outsample = out;
        t = _uts[i];
        _uts[i] = u;
        // Behind every waiting input whose time is not greater, so that
        // equal times go out in the order they were read.  The search
        // stops at position 1 at the latest.
        int* const seq = _seq.data();
        const double* const uts = _uts.data();
        if (_ninputs > 1 && !(u < uts[seq[1]])) {
          int k = _ninputs - 1;
          while (uts[seq[k]] > u) --k;
          for (int m = 0; m < k; ++m) seq[m] = seq[m + 1];
          seq[k] = i;
          _frontIndex = seq[0];
          _front = _files[seq[0]];
        }
        return out;
      }
    }
    return fullPass(t);
  }

  // Reads the next sample of input i into its read-ahead slot and puts i
  // in its place in the time order (i stands first, or anywhere when
  // pending is set).  Returns the input's readSample result.
  int readSample(int i, int pending);

  // Deletes input i and its samples; the inputs above it move down one
  // index.
  void removeInput(int i);

  int size() const { return _ninputs; }

 private:
  RawSample* fullPass(double& t);
  void setFront();
  int readInput(int i);
  void park(int i);
  void moveToFront(int pos);
  void placeFirst(double t);
  bool isPending(int i) const;

  std::vector<RawDataInput*> _inputs;
  // Per input, the same input when it is a file input, else null: file
  // inputs are read inline in the usual case (FilesRawDataInput::takeUsual).
  std::vector<FilesRawDataInput*> _files;
  // The input whose sample goes out next when the inline pass can take it
  // (nothing is pending and it is a file input), else null; _frontIndex is
  // its index.  Set anew by every change of the order (setFront).
  FilesRawDataInput* _front;
  int _frontIndex;
  // Per input, the sample read ahead.
  std::vector<RawSample*> _samples;
  // The sample last handed out.  It is exchanged with the read-ahead slot
  // of its input, so samples are never copied, and it belongs to the merger
  // so that it outlives an input that ends on the read behind it.
  RawSample* _outsample;
  std::vector<double> _uts;
  std::vector<int> _seq;
  int _ninputs;
  std::vector<int> _pending;
};

#endif
