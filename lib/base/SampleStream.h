// A typed first-in first-out queue of samples between processing stages.
//
// The stream holds one DPlist of samples, all of one kind (a small integer
// chosen by the pipeline, e.g. raw or calibrated).  A stage pushes samples
// of one kind and the next stage pops the whole list at once, naming the
// kind it expects; a mismatch throws SampleTypeMisMatch.
#ifndef HERON_SAMPLESTREAM_H
#define HERON_SAMPLESTREAM_H

#include "base/DPlist.h"

template <class T>
class SampleStream {
 public:
  // Thrown on a push or pop of a kind other than that of the samples held.
  class SampleTypeMisMatch {};

  SampleStream() : fifo(nullptr), fifoType(0), nextType(0) {}
  ~SampleStream() { delete fifo; }
  SampleStream(const SampleStream&) = delete;
  SampleStream& operator=(const SampleStream&) = delete;

  // Appends s (when not null) as a sample of kind type.  An empty stream
  // takes the kind; otherwise type must be the kind held, or
  // SampleTypeMisMatch is thrown and s is left to the caller.  Later pushes
  // and pops default to the kind held.
  void Push(int type, T* s) {
    if (!fifo) fifo = new DPlist<T>;
    if (fifo->empty())
      fifoType = type;
    else if (type != fifoType)
      throw SampleTypeMisMatch();
    if (s) fifo->push_back(s);
    nextType = fifoType;
  }

  // Hands over the whole list (the caller deletes it), or null when the
  // stream is empty.  Throws SampleTypeMisMatch when type is not the kind
  // held.
  DPlist<T>* Pop(int type) {
    if (empty()) return nullptr;
    if (type != fifoType) throw SampleTypeMisMatch();
    DPlist<T>* out = fifo;
    fifo = nullptr;
    return out;
  }

  bool empty() const { return !fifo || fifo->empty(); }

  // The kind used by the next << or >>.
  void SetType(int type) { nextType = type; }
  SampleStream& operator<<(int type) {
    nextType = type;
    return *this;
  }
  SampleStream& operator>>(int type) {
    nextType = type;
    return *this;
  }

  // Push(nextType, s).
  SampleStream& operator<<(T* s) {
    Push(nextType, s);
    return *this;
  }

  // Pops the samples of kind nextType onto the back of out.  The stream
  // keeps its emptied list for the next push.
  SampleStream& operator>>(DPlist<T>& out) {
    if (empty()) return *this;
    if (nextType != fifoType) throw SampleTypeMisMatch();
    splice(out.end(), *fifo);
    return *this;
  }

 private:
  DPlist<T>* fifo;  // created on the first push
  int fifoType;     // kind of the samples in fifo
  int nextType;     // kind for the next << or >>
};

#endif
