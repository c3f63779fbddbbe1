// A raw sample: one time-tagged record of one channel of an acquisition
// module, in the one format shared by the modules' fast output, the ingest
// server, sockets and archive files: a 6-byte header (4-byte big-endian time
// tag, channel, data length) followed by 0..255 data bytes.  The time tag
// is kept in wire order and converted only when read (Msecs).  Everything
// that reads or writes the header goes through the codec below.
#ifndef HERON_RAWSAMPLE_H
#define HERON_RAWSAMPLE_H

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <ostream>

#include "base/DataArray.h"
#include "time/TTConv.h"

typedef uint32_t TIMETAG;  // as held in memory: the four bytes in wire order
typedef uint8_t CHAN_T;
typedef uint8_t SAMPLE_N;

class RawSample {
 public:
  static const int headLen = 6;
  // Data of up to this many bytes are copied as one fixed-width block.
  static const int quickLen = 32;
  // Longest text that format() writes, terminating NUL included.
  static const int maxTextLen = 16 + 4 + 4 + 128 * 7 + 1;

  RawSample() : tt(0), chan(0), len(0), data(8), ternIndex(0) {}

  // Number of data bytes held.
  int size() const { return data.getNbytes(); }
  // The time tag in milliseconds of the day, by the site's tag type.
  int Msecs() const { return TTConv::Msecs(static_cast<long>(tt)); }

  // Makes the data a copy of the n bytes at p.  Short data are copied as a
  // block of quickLen bytes, so that many bytes at p must be readable
  // whatever n is; the storage grows to quickLen on the first such copy and
  // is reused from then on.
  void takeData(const char* p, int n) {
    if (!data.copyBlock(p, n, quickLen)) takeLongData(p, n);
  }

  // The header codec, the one place that knows the layout.  The fields of
  // the header at p (headLen readable bytes): the time tag as it travels,
  // and the number of data bytes that follow.
  static TIMETAG tagAt(const char* p) {
    TIMETAG t;
    memcpy(&t, p, 4);
    return t;
  }
  static int lengthAt(const char* p) { return static_cast<unsigned char>(p[5]); }
  // Takes tt, chan and len from the header at p; the data are untouched.
  void decodeHeader(const char* p) {
    tt = tagAt(p);
    chan = static_cast<CHAN_T>(p[4]);
    len = static_cast<SAMPLE_N>(p[5]);
  }
  // Writes tt (as held), chan and len as a header at p.
  void encodeHeader(char* p) const {
    memcpy(p, &tt, 4);
    p[4] = static_cast<char>(chan);
    p[5] = static_cast<char>(len);
  }
  // The sample as it travels: its header, then len data bytes (which it
  // holds, as every sample an input reads does), at out; returns the
  // number of bytes written, at most headLen + 255.
  int encode(char* out) const {
    encodeHeader(out);
    memcpy(out + headLen, static_cast<const char*>(data), len);
    return headLen + len;
  }

  // encode's bytes, header as held (the time tag stays big-endian) then
  // the data bytes held, to fp.  Throws oru::IOException("output file",
  // "write", errno).
  void Write(FILE* fp) const;

  // The text form: milliseconds of the day, channel, data size in bytes,
  // then each whole 16-bit data word as a signed number in host order, all
  // separated by single blanks.  Writes into buf (at least maxTextLen
  // bytes), NUL-terminated; returns the length.
  int format(char* buf) const;

  TIMETAG tt;
  CHAN_T chan;
  SAMPLE_N len;
  DataArray<char> data;
  int ternIndex;  // module the sample came from; not written out

 private:
  void takeLongData(const char* p, int n);
};

// The text form of format().
std::ostream& operator<<(std::ostream& os, const RawSample& s);

#endif
