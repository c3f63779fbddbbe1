// The sample framer on any bytes, in pieces of any size.  Byte 0 chooses the
// framing (odd: end-of-message bytes), byte 1 starts the piece sizes.  It
// must end, stay in its buffer and invent nothing: on a plain stream the
// samples laid end to end are the start of the stream; on a framed one each
// sample, with its end-of-message byte, is a piece of the stream.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "base/Exception.h"
#include "samples/Sample.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 60000) return 0;
  const bool framed = data[0] & 1;
  unsigned piecer = data[1] * 2654435761u + 1;
  const std::string stream(reinterpret_cast<const char*>(data + 2), size - 2);
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0 || fcntl(fds[1], F_SETFL, O_NONBLOCK) != 0) abort();
  int room = 1 << 20;
  setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  std::string delivered;
  {
    std::unique_ptr<RawDataInput> in(framed ? static_cast<RawDataInput*>(new OwlFastoutRawDataInput("f", "t", 0, fds[0]))
                                            : new TernRawDataInput("t", 0, fds[0]));
    in->setNonBlocking(1);
    RawSample s;
    try {
      for (size_t pos = 0; pos < stream.size();) {
        piecer = piecer * 1103515245u + 12345u;
        const size_t piece = std::min(stream.size() - pos, static_cast<size_t>(1 + (piecer >> 16) % 600));
        if (write(fds[1], stream.data() + pos, piece) != static_cast<ssize_t>(piece)) abort();
        pos += piece;
        for (int r; (r = in->readSample(&s)) != 0;) {
          std::string wire(reinterpret_cast<const char*>(&s.tt), 4);
          wire += static_cast<char>(s.chan);
          wire += static_cast<char>(s.len);
          wire.append(static_cast<const char*>(s.data), static_cast<size_t>(s.size()));
          if ((r != 1 && r != 2) || s.size() != s.len) abort();
          if (framed && r == 1 && stream.find(wire + '\3') == std::string::npos) abort();
          if (!framed) delivered += wire;
        }
      }
    } catch (const oru::EOFException&) {  // the end-of-data marker
    }
  }
  close(fds[0]);
  close(fds[1]);
  if (stream.compare(0, delivered.size(), delivered) != 0) abort();
  return 0;
}
