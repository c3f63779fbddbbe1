// The sample framer on any bytes, in pieces of any size, through a byte
// source in memory.  Byte 0 chooses the framing (bit 0: end-of-message
// bytes, bit 1: datagrams), byte 1 starts the piece sizes.  The buffer is
// small, so that inputs of a few kilobytes shift it many times.  The framer
// must end, stay in its buffer and invent nothing: on a plain stream the
// samples laid end to end are the start of the stream; otherwise each
// sample (with its end-of-message byte) is a piece of the stream.
#include <stdlib.h>

#include <string>

#include "../lib/samples/sample_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const bool framed = data[0] & 1, datagrams = data[0] & 2;
  unsigned piecer = data[1] * 2654435761u + 1;
  const std::string stream(reinterpret_cast<const char*>(data + 2), size - 2);
  std::vector<std::string> pieces;
  for (size_t pos = 0; pos < stream.size(); pos += pieces.back().size()) {
    piecer = piecer * 1103515245u + 12345u;
    pieces.push_back(stream.substr(pos, 1 + (piecer >> 16) % 600));
  }
  Framer f(1024);
  if (framed) f.setEndOfMessage(3);
  f.setDatagrams(datagrams);
  sample_test::StringSource src(pieces, true);
  std::string delivered;
  RawSample s;
  for (;;) {
    const Framer::Result r = f.next(&s, 0);
    if (r == Framer::NoData) {
      if (f.full() || f.fill(src) <= 0) break;
      continue;
    }
    std::string wire = sample_test::bytesOf(sample_test::recordOf(s));
    if (s.size() != s.len || r > Framer::EndOfData) abort();
    if ((framed || datagrams) && r != Framer::FramingError && stream.find(wire + (framed ? "\3" : "")) == std::string::npos)
      abort();
    if (!framed && !datagrams) delivered += wire;
  }
  if (stream.compare(0, delivered.size(), delivered) != 0) abort();
  return 0;
}
