#include "samples/RawSample.h"

#include <errno.h>
#include <string.h>

#include "base/Exception.h"

void RawSample::Write(FILE* fp) const {
  char head[headLen];
  encodeHeader(head);
  const size_t n = static_cast<size_t>(size());
  if (fwrite(head, 1, headLen, fp) != static_cast<size_t>(headLen) ||
      (n > 0 && fwrite(static_cast<const char*>(data), 1, n, fp) != n))
    throw oru::IOException("output file", "write", errno);
}

// The first short copy into fresh storage, and every long one.
void RawSample::takeLongData(const char* p, int n) {
  if (n <= quickLen) {
    data.expand(quickLen);
    takeData(p, n);
  } else {
    data.copyFrom(p, n);
  }
}

namespace {
// Decimal text of v at p; returns the position after it.
char* putInt(char* p, long v) {
  char tmp[24];
  int n = 0;
  unsigned long u = v < 0 ? 0UL - static_cast<unsigned long>(v) : static_cast<unsigned long>(v);
  do {
    tmp[n++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  if (v < 0) *p++ = '-';
  while (n > 0) *p++ = tmp[--n];
  return p;
}
}  // namespace

int RawSample::format(char* buf) const {
  char* p = putInt(buf, Msecs());
  *p++ = ' ';
  p = putInt(p, chan);
  *p++ = ' ';
  const int n = size();
  p = putInt(p, n);
  const char* d = data;
  for (int i = 0; i + 1 < n; i += 2) {
    int16_t w;
    memcpy(&w, d + i, 2);
    *p++ = ' ';
    p = putInt(p, w);
  }
  *p = '\0';
  return static_cast<int>(p - buf);
}

std::ostream& operator<<(std::ostream& os, const RawSample& s) {
  char buf[RawSample::maxTextLen];
  const int n = s.format(buf);
  return os.write(buf, n);
}
