// Fuzzes the sample framer: any bytes, delivered in pieces of any size, on a
// plain stream or a stream framed by end-of-message bytes.
//
// Input: byte 0 chooses the framing (odd: end-of-message bytes checked),
// byte 1 starts the piece sizes, the rest is the stream.  Checked: the framer
// ends, never reads outside its buffer, and invents nothing: on a plain
// stream the samples delivered, laid end to end, are exactly the start of
// the stream; on a framed stream each delivered sample, with its
// end-of-message byte, is a piece of the stream.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "Exception.h"
#include "Sample.h"

namespace {
std::string wire(const RawSample& s) {
  std::string b(reinterpret_cast<const char*>(&s.tt), 4);
  b += static_cast<char>(s.chan);
  b += static_cast<char>(s.len);
  b.append(static_cast<const char*>(s.data), static_cast<size_t>(s.size()));
  return b;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 60000) return 0;
  const bool framed = data[0] & 1;
  unsigned piecer = data[1] * 2654435761u + 1;
  const std::string stream(reinterpret_cast<const char*>(data + 2), size - 2);

  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) abort();
  if (fcntl(fds[1], F_SETFL, O_NONBLOCK) != 0) abort();
  int room = 1 << 20;
  setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  std::string delivered;
  {
    std::unique_ptr<RawDataInput> owned;
    if (framed)
      owned.reset(new OwlFastoutRawDataInput("fuzz", "t", 0, fds[0]));
    else
      owned.reset(new TernRawDataInput("t", 0, fds[0]));
    RawDataInput& in = *owned;
    in.setNonBlocking(1);
    RawSample s;
    try {
      for (size_t pos = 0; pos < stream.size();) {
        piecer = piecer * 1103515245u + 12345u;
        const size_t piece = std::min(stream.size() - pos, static_cast<size_t>(1 + (piecer >> 16) % 600));
        if (write(fds[1], stream.data() + pos, piece) != static_cast<ssize_t>(piece)) abort();
        pos += piece;
        int r;
        while ((r = in.readSample(&s)) != 0) {
          if (r != 1 && r != 2) abort();
          if (s.size() != s.len) abort();
          if (framed) {
            if (r == 1 && stream.find(wire(s) + '\3') == std::string::npos) abort();
          } else {
            delivered += wire(s);
          }
        }
      }
    } catch (const oru::EOFException&) {
      // The end-of-data marker.
    }
  }
  close(fds[0]);
  close(fds[1]);
  if (!framed && stream.compare(0, delivered.size(), delivered) != 0) abort();
  return 0;
}
