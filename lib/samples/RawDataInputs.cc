#include "samples/RawDataInputs.h"

#include <algorithm>

#include "base/Exception.h"

RawDataInputs::~RawDataInputs() {
  for (int i = 0; i < _ninputs; ++i) {
    delete _inputs[i];
    delete _samples[i];
  }
  delete _outsample;
}

void RawDataInputs::addInput(RawDataInput* in) {
  RawSample* s = nullptr;
  try {
    s = new RawSample;
    _inputs.push_back(in);
    _files.push_back(dynamic_cast<FilesRawDataInput*>(in));
    _samples.push_back(s);
    _uts.push_back(1e-37);
    _seq.insert(_seq.begin(), _ninputs);
  } catch (...) {
    // Leave the merger as it was and the input with nobody: delete it.
    _inputs.resize(static_cast<size_t>(_ninputs));
    _files.resize(static_cast<size_t>(_ninputs));
    _samples.resize(static_cast<size_t>(_ninputs));
    _uts.resize(static_cast<size_t>(_ninputs));
    if (_seq.size() > static_cast<size_t>(_ninputs)) _seq.erase(_seq.begin());
    delete s;
    delete in;
    throw;
  }
  ++_ninputs;
  // The new input stands first: read its first sample into its slot and
  // sort it in.  Unlike handing out a sample, this consumes nothing of the
  // other inputs, whatever the new one has to offer.
  try {
    readSample(_ninputs - 1, 0);
  } catch (const oru::EOFException&) {
    // Already removed: an input without samples adds nothing.
  }
  setFront();
}

void RawDataInputs::setFront() {
  if (_pending.empty() && _ninputs > 0) {
    _frontIndex = _seq[0];
    _front = _files[_frontIndex];
  } else {
    _front = nullptr;
  }
}

void RawDataInputs::removeInput(int i) {
  if (i < 0 || i >= _ninputs) return;
  delete _inputs[i];
  delete _samples[i];
  _inputs.erase(_inputs.begin() + i);
  _files.erase(_files.begin() + i);
  _samples.erase(_samples.begin() + i);
  _uts.erase(_uts.begin() + i);
  --_ninputs;
  // The inputs above i have moved down one index; so do their entries.
  _seq.erase(std::remove(_seq.begin(), _seq.end(), i), _seq.end());
  _pending.erase(std::remove(_pending.begin(), _pending.end(), i), _pending.end());
  for (int& k : _seq)
    if (k > i) --k;
  for (int& k : _pending)
    if (k > i) --k;
  setFront();
}

// _seq[pos] goes to the front; the entries before it move back one place.
void RawDataInputs::moveToFront(int pos) {
  const int i = _seq[pos];
  for (int k = pos; k > 0; --k) _seq[k] = _seq[k - 1];
  _seq[0] = i;
}

bool RawDataInputs::isPending(int i) const {
  return !_pending.empty() && std::find(_pending.begin(), _pending.end(), i) != _pending.end();
}

// The input at _seq[0], whose read-ahead time is now t, goes behind every
// waiting input whose time is not greater (so equal times keep the order in
// which they were read).  Inputs on _pending stay at the back: their times
// are those of samples already handed out.
void RawDataInputs::placeFirst(double t) {
  // Still the earliest: nothing moves (always so with one input).
  if (_ninputs < 2 || (t < _uts[_seq[1]] && _pending.empty())) return;
  const int i = _seq[0];
  int k = _ninputs - 1;
  while (k > 0 && (_uts[_seq[k]] > t || isPending(_seq[k]))) --k;
  for (int m = 0; m < k; ++m) _seq[m] = _seq[m + 1];
  _seq[k] = i;
}

// Input i's next sample into its slot.  An input that fails is removed and
// the failure thrown on.
inline int RawDataInputs::readInput(int i) {
  try {
    // A file input's class is final: a direct call.
    if (FilesRawDataInput* const f = _files[i]) return f->readSample(_samples[i]);
    return _inputs[i]->readSample(_samples[i]);
  } catch (const oru::EOFException& e) {
    removeInput(i);
    throw oru::EOFException(e);
  } catch (const oru::IOException& e) {
    removeInput(i);
    throw oru::IOException(e);
  } catch (const oru::InterruptedException& e) {
    removeInput(i);
    throw oru::InterruptedException(e);
  }
}

// Input i, which had no sample to give, waits at the back until it has.
void RawDataInputs::park(int i) {
  if (std::find(_pending.begin(), _pending.end(), i) == _pending.end()) _pending.push_back(i);
  const auto pos = std::find(_seq.begin(), _seq.end(), i) - _seq.begin();
  for (auto k = pos; k + 1 < _ninputs; ++k) _seq[k] = _seq[k + 1];
  _seq[_ninputs - 1] = i;
}

int RawDataInputs::readSample(int i, int pending) {
  const int r = readInput(i);
  if (r == 1) {
    const double t = _inputs[i]->tt_to_secs(static_cast<long>(_samples[i]->tt));
    _uts[i] = t;
    if (pending || _seq[0] != i) {
      const auto pos = std::find(_seq.begin(), _seq.end(), i) - _seq.begin();
      moveToFront(static_cast<int>(pos));
    }
    placeFirst(t);
  } else if (!pending) {
    park(i);
  }
  setFront();
  return r;
}

// Everything getSample does not do inline: pending inputs, inputs that
// are not files, refilling a buffer, and the ends of inputs.
RawSample* RawDataInputs::fullPass(double& t) {
  for (;;) {
    if (_ninputs == 0) throw oru::EOFException("all inputs", "getSample");
    try {
      for (size_t p = 0; p < _pending.size();) {
        const int index = _pending[p];
        int r;
        // A framing error has consumed the bad bytes: read on.
        while ((r = readSample(index, 1)) == 2) {
        }
        if (r == 1)
          _pending.erase(_pending.begin() + static_cast<long>(p));
        else
          ++p;
      }
      if (_ninputs == 0) continue;
      // Every input left is waiting for data that is not there yet.
      if (static_cast<int>(_pending.size()) == _ninputs) {
        setFront();
        return nullptr;
      }

      const int i = _seq[0];
      std::swap(_outsample, _samples[i]);
      t = _uts[i];
      // The sample is due whatever the read behind it brings: no data now
      // or a framing error puts the input on _pending, its end removes it.
      try {
        readSample(i, 0);
      } catch (const oru::EOFException&) {
      }
      setFront();
      return _outsample;
    } catch (const oru::EOFException&) {
      // An input that ended has been removed; go on with the rest (the next
      // pass reports the end of all inputs when none is left).
    }
  }
}
