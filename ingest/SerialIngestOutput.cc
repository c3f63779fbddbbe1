// The single-port outputs: the octal and hexadecimal dumps of the port's
// bytes, and one text line per raw sample.
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "SerialIngest.h"
#include "base/Exception.h"
#include "port/TTy.h"
#include "samples/Sample.h"

namespace {
// Hands one read's worth of formatted dump text to standard output at once,
// so a pipe sees every byte as soon as the port delivered it.
void emit(const std::string& text) {
  if (text.empty()) return;
  if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
    throw oru::IOException("stdout", "write", errno);
}

// "%07llu" of the running byte offset, without a formatted-print call.
void appendOffset(std::string& out, unsigned long long n) {
  char digits[24];
  int len = 0;
  do {
    digits[len++] = static_cast<char>('0' + n % 10);
    n /= 10;
  } while (n);
  for (int i = len; i < 7; ++i) out += '0';
  while (len) out += digits[--len];
}

const char kHex[] = "0123456789abcdef";

// Shared loop of both dumps: the offset before every 16th byte, the byte in
// the dump's own form, a newline after every 16th.
template <typename FormatByte>
int dump(TTy* tty, FormatByte formatByte) {
  char buf[1024];
  unsigned long long counter = 0;
  std::string out;
  out.reserve(8 * sizeof buf);
  for (;;) {
    int n = tty->read(buf, sizeof buf);
    if (n == 0) throw oru::EOFException(tty->getName(), "read");
    out.clear();
    for (int i = 0; i < n; ++i) {
      if (counter % 16 == 0) appendOffset(out, counter);
      formatByte(out, static_cast<unsigned char>(buf[i]), counter);
      if (++counter % 16 == 0) out += '\n';
    }
    emit(out);
  }
}
}  // namespace

const char* SerialIngest::fastoutModuleName() {
  const char* name = getenv("SERIAL_INGEST_TERN");
  return name != nullptr && name[0] != '\0' ? name : SERIAL_INGEST_DEFAULT_TERN;
}

int SerialIngest::sampleOutput(TTy* tty) {
  OwlFastoutRawDataInput input(tty->getName(), fastoutModuleName(), 0, tty->fd());
  RawSample sample;
  char line[2 + RawSample::maxTextLen + 1];
  for (;;) {
    const int r = input.readSample(&sample);
    if (r != 1 && r != 2) continue;
    // "B " marks a sample dropped for a missing end-of-message byte.
    line[0] = r == 1 ? ' ' : 'B';
    line[1] = ' ';
    size_t n = 2 + static_cast<size_t>(sample.format(line + 2));
    line[n++] = '\n';
    if (fwrite(line, 1, n, stdout) != n || fflush(stdout) != 0) throw oru::IOException("stdout", "write", errno);
  }
}

int SerialIngest::octout(TTy* tty) {
  return dump(tty, [](std::string& out, unsigned char b, unsigned long long) {
    if (b == 0) {
      out += "  \\0";
    } else if (isprint(b)) {
      out += "   ";
      out += static_cast<char>(b);
    } else {
      out += ' ';
      out += static_cast<char>('0' + (b >> 6));
      out += static_cast<char>('0' + ((b >> 3) & 7));
      out += static_cast<char>('0' + (b & 7));
    }
  });
}

int SerialIngest::hexout(TTy* tty) {
  return dump(tty, [](std::string& out, unsigned char b, unsigned long long counter) {
    if (counter % 2 == 0) out += ' ';
    out += kHex[b >> 4];
    out += kHex[b & 15];
  });
}
