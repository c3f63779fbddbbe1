#include "samples/Framer.h"

#include <string.h>

#include <stdexcept>

Framer::Framer(int bufsize)
    : rbp(nullptr),
      wbp(nullptr),
      eob(nullptr),
      mob(nullptr),
      datagramSocket(false),
      _serialStreamOutOfSync(0),
      _EOM(0),
      _lenEOM(0),
      _checkEOM(0) {
  // One sample with its end-of-message byte must fit in half the buffer,
  // or an incomplete sample could never be completed.
  if (bufsize < 2 * (RawSample::headLen + 255 + 1)) throw std::invalid_argument("RawDataInput: buffer too small");
  static_assert(RawSample::quickLen <= RawSample::headLen + 255, "a block copy must stay within the room");
  inputBuffer.reset(new char[static_cast<size_t>(bufsize) + RawSample::headLen + 255]());
  rbp = wbp = inputBuffer.get();
  eob = rbp + bufsize;
  mob = rbp + bufsize / 2;
}

Framer::Result Framer::next(RawSample* samp, int ternIndex) {
  while (_serialStreamOutOfSync && rbp < wbp) {
    if (*rbp++ == _EOM) _serialStreamOutOfSync = 0;
  }
  const long avail = wbp - rbp;
  const int len = avail >= RawSample::headLen ? RawSample::lengthAt(rbp) : 0;
  if (avail < RawSample::headLen || avail < _lenEOM + RawSample::headLen + len) {
    if (datagramSocket) {
      clear();
    } else if (wbp > mob) {
      shiftData();
    }
    return NoData;
  }
  samp->decodeHeader(rbp);
  samp->takeData(rbp + RawSample::headLen, len);
  samp->ternIndex = ternIndex;
  rbp += RawSample::headLen + len;

  if (_checkEOM && *rbp++ != _EOM) {
    // Hunt for the next end-of-message byte from one past the start of
    // the bad sample.
    _serialStreamOutOfSync = 1;
    rbp -= len + RawSample::headLen;
    return FramingError;
  }

  if (samp->chan == 3 && len == 255) {
    const unsigned char* d = samp->data;
    int i = 0;
    while (i < 255 && d[i] == i) ++i;
    if (i == 255) return EndOfData;
  }
  return Sample;
}

void Framer::shiftData() {
  char* const start = inputBuffer.get();
  const long n = wbp - rbp;
  if (n > 0 && rbp != start) memmove(start, rbp, static_cast<size_t>(n));
  rbp = start;
  wbp = start + n;
}
