#include "samples/RawDataInputs.h"

#include <algorithm>

#include "base/Exception.h"

void RawDataInputs::addInput(std::unique_ptr<RawDataInput> in) {
  _seq.reserve(_entries.size() + 1);  // so that the insert below cannot fail
  _entries.push_back(Entry{std::move(in), std::unique_ptr<RawSample>(new RawSample), 1e-37});
  _ninputs = static_cast<int>(_entries.size());
  _seq.insert(_seq.begin(), _ninputs - 1);
  // The new input stands first: read its first sample into its slot and
  // sort it in.  Unlike handing out a sample, this consumes nothing of the
  // other inputs, whatever the new one has to offer.
  try {
    readSample(size() - 1, 0);
  } catch (const oru::EOFException&) {
    // Already removed: an input without samples adds nothing.
  }
  setHead();
}

void RawDataInputs::removeInput(int i) {
  if (i < 0 || i >= size()) return;
  _entries.erase(_entries.begin() + i);
  _ninputs = static_cast<int>(_entries.size());
  // The inputs above i have moved down one index; so do their entries.
  _seq.erase(std::remove(_seq.begin(), _seq.end(), i), _seq.end());
  _pending.erase(std::remove(_pending.begin(), _pending.end(), i), _pending.end());
  for (int& k : _seq)
    if (k > i) --k;
  for (int& k : _pending)
    if (k > i) --k;
  setHead();
}

bool RawDataInputs::isPending(int i) const {
  return !_pending.empty() && std::find(_pending.begin(), _pending.end(), i) != _pending.end();
}

// Input i's next sample into its slot.  An input that fails is removed and
// the failure thrown on.
int RawDataInputs::readInput(int i) {
  Entry& e = _entries[static_cast<size_t>(i)];
  try {
    return e.input->readSample(e.ahead.get());
  } catch (const oru::EOFException& ex) {
    removeInput(i);
    throw oru::EOFException(ex);
  } catch (const oru::IOException& ex) {
    removeInput(i);
    throw oru::IOException(ex);
  } catch (const oru::InterruptedException& ex) {
    removeInput(i);
    throw oru::InterruptedException(ex);
  }
}

// Input i, which had no sample to give, waits at the back until it has.
void RawDataInputs::park(int i) {
  if (!isPending(i)) _pending.push_back(i);
  _seq.erase(std::find(_seq.begin(), _seq.end(), i));
  _seq.push_back(i);
}

int RawDataInputs::readSample(int i, int pending) {
  const int r = readInput(i);
  if (r == Framer::Sample) {
    Entry& e = _entries[static_cast<size_t>(i)];
    e.time = e.input->tt_to_secs(static_cast<long>(e.ahead->tt));
    if (pending || _seq[0] != i) {
      // i to the front; the entries before it move back one place.
      const auto pos = std::find(_seq.begin(), _seq.end(), i);
      std::rotate(_seq.begin(), pos, pos + 1);
    }
    placeFirst(e.time, !_pending.empty());
  } else if (!pending) {
    park(i);
  }
  setHead();
  return r;
}

// Everything getSample does not do inline: pending inputs, framed and
// datagram inputs, refilling a buffer, and the ends of inputs.
RawSample* RawDataInputs::fullPass(double& t) {
  for (;;) {
    if (_entries.empty()) throw oru::EOFException("all inputs", "getSample");
    try {
      for (size_t p = 0; p < _pending.size();) {
        const int index = _pending[p];
        int r;
        // A framing error has consumed the bad bytes: read on.
        while ((r = readSample(index, 1)) == Framer::FramingError) {
        }
        if (r == Framer::Sample)
          _pending.erase(_pending.begin() + static_cast<long>(p));
        else
          ++p;
      }
      setHead();
      if (_entries.empty()) continue;
      // Every input left is waiting for data that is not there yet.
      if (_pending.size() == _entries.size()) return nullptr;

      const int i = _seq[0];
      Entry& e = _entries[static_cast<size_t>(i)];
      e.ahead.swap(_outsample);
      t = e.time;
      // The sample is due whatever the read behind it brings: no data now
      // or a framing error puts the input on _pending, its end removes it.
      try {
        readSample(i, 0);
      } catch (const oru::EOFException&) {
      }
      return _outsample.get();
    } catch (const oru::EOFException&) {
      // An input that ended has been removed; go on with the rest (the next
      // pass reports the end of all inputs when none is left).
    }
  }
}
