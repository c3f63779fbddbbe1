// Cuts a byte stream into raw samples through one buffer.  Each sample is a
// 6-byte header and its data; on framed streams (setEndOfMessage) an
// end-of-message byte follows, and when it is missing the sample is
// reported once as a framing error and the framer hunts for the next
// end-of-message byte, resuming after it.  On datagram streams a sample
// that its datagram does not complete is dropped, never completed from the
// next datagram.  A sample of channel 3 and length 255 whose data are
// 0, 1, ..., 254 is the end-of-data marker.
//
// The buffer holds bufsize bytes, plus room past its end (zeroed) so that a
// short sample's data can be copied as one fixed block and a sample's end
// computed from its length byte before the bytes are known to be there.
#ifndef HERON_FRAMER_H
#define HERON_FRAMER_H

#include <memory>

#include "base/ByteSource.h"
#include "samples/RawSample.h"

class Framer {
 public:
  enum Result { NoData = 0, Sample = 1, FramingError = 2, EndOfData = 3 };

  // bufsize must hold two of the longest framed samples: throws
  // std::invalid_argument otherwise.
  explicit Framer(int bufsize);

  Framer(const Framer&) = delete;
  Framer& operator=(const Framer&) = delete;

  // Every sample is followed by eom, which is checked.
  void setEndOfMessage(char eom) {
    _EOM = eom;
    _lenEOM = 1;
    _checkEOM = 1;
  }
  // Each read delivers whole datagrams.
  void setDatagrams(bool on) { datagramSocket = on; }

  // The next sample into samp, stamped with ternIndex: Sample; NoData when
  // the buffer holds no whole sample (which is kept for the next read, or
  // dropped on datagram streams); FramingError for a sample without its
  // end-of-message byte; EndOfData for the marker (consumed).
  Result next(RawSample* samp, int ternIndex);

  bool full() const { return wbp == eob; }
  // One read from src into the free end of the buffer (not full): src's
  // result, the buffer advanced by what it read.
  long fill(ByteSource& src) {
    const long n = src.read(wbp, static_cast<size_t>(eob - wbp));
    if (n > 0) wbp += n;
    return n;
  }
  // Moves the unread bytes to the start of the buffer.
  void shiftData();
  // Forgets every buffered byte (a new file starts).
  void clear() { rbp = wbp = inputBuffer.get(); }

  // The next sample as it would come out of next() as a Sample, when it is
  // whole in the buffer of a stream without end-of-message bytes; else
  // null.  Its data length is len; take(len) consumes it.
  const char* peekWhole(int& len) const {
    const char* const p = rbp;
    len = RawSample::lengthAt(p);
    return !_checkEOM && p + RawSample::headLen + len <= wbp ? p : nullptr;
  }
  void take(int len) { rbp += RawSample::headLen + len; }

 private:
  std::unique_ptr<char[]> inputBuffer;
  char* rbp;  // first byte not yet taken
  char* wbp;  // first free byte
  char* eob;  // end of the buffer
  char* mob;  // middle of the buffer
  bool datagramSocket;
  int _serialStreamOutOfSync;
  char _EOM;
  int _lenEOM;
  int _checkEOM;
};

#endif
