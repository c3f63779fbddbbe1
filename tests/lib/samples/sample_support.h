// Helpers shared by the raw-sample tests and fuzz drivers: sample bytes as
// they travel, a byte source fed from strings, and an input over it.
#ifndef HERON_TESTS_SAMPLE_SUPPORT_H
#define HERON_TESTS_SAMPLE_SUPPORT_H

#include <arpa/inet.h>
#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "samples/RawDataInput.h"

namespace sample_test {

// One sample: time tag in milliseconds of the day, channel, data.
struct Record {
  uint32_t ms;
  uint8_t chan;
  std::string data;
};

// Its bytes (big-endian tag); eom appends the end-of-message byte 3.
inline std::string bytesOf(const Record& s, bool eom = false) {
  const uint32_t tt = htonl(s.ms);
  std::string b(reinterpret_cast<const char*>(&tt), 4);
  b += static_cast<char>(s.chan);
  b += static_cast<char>(s.data.size());
  return b + s.data + (eom ? "\3" : "");
}

inline Record recordOf(const RawSample& s) {
  return Record{ntohl(s.tt), s.chan, std::string(static_cast<const char*>(s.data), static_cast<size_t>(s.size()))};
}

inline bool operator==(const Record& a, const Record& b) {
  return a.ms == b.ms && a.chan == b.chan && a.data == b.data;
}

// Good samples with stretches of noise ending in an end byte, samples with
// a wrong end byte and samples cut short, tags rising from startMs, in
// random pieces; an empty piece is a pause.
inline std::vector<std::string> corruptStream(std::mt19937& rng, uint32_t startMs) {
  std::string bytes;
  for (uint32_t i = 0; i < 300; ++i) {
    Record r{startMs + i, static_cast<uint8_t>(1 + rng() % 4), std::string(rng() % 256, '\0')};
    for (char& c : r.data) c = static_cast<char>(rng());
    const std::string s = bytesOf(r);
    const unsigned kind = rng() % 10;
    if (kind == 0) {
      for (int k = static_cast<int>(rng() % 40); k > 0; --k) bytes += static_cast<char>(rng());
      bytes += '\3';
    }
    bytes += kind == 1 ? s + static_cast<char>(4 + rng() % 250) : kind == 2 ? s.substr(0, rng() % s.size()) : s + '\3';
  }
  std::vector<std::string> pieces;
  for (size_t at = 0; at < bytes.size();) {
    pieces.push_back(bytes.substr(at, 1 + rng() % (rng() % 4 == 0 ? 4096 : 64)));
    at += pieces.back().size();
    if (rng() % 2) pieces.emplace_back();  // nothing now
  }
  return pieces;
}

// Hands out its pieces in order, each in reads of at most the size asked;
// an empty piece is one read that finds nothing now (EAGAIN).  After the
// last piece: the end (ends) or nothing now for ever.
class StringSource : public ByteSource {
 public:
  StringSource(std::vector<std::string> pieces, bool ends) : pieces_(std::move(pieces)), ends_(ends) {}
  long read(char* p, size_t n) override {
    if (k_ == pieces_.size()) return ends_ ? 0 : (errno = EAGAIN, -1);
    const std::string& s = pieces_[k_];
    const size_t m = std::min(n, s.size() - pos_);
    memcpy(p, s.data() + pos_, m);
    if ((pos_ += m) == s.size()) ++k_, pos_ = 0;
    return m ? static_cast<long>(m) : (errno = EAGAIN, -1);
  }

 private:
  std::vector<std::string> pieces_;
  bool ends_;
  size_t k_ = 0, pos_ = 0;
};

// An input over a StringSource whose time tags are milliseconds of the
// day, started at the time start.  A live one frames with end-of-message
// bytes and takes earlier tags believed at last as the next day.
class MemoryInput : public RawDataInput {
 public:
  MemoryInput(std::vector<std::string> pieces, bool ends, int ternIndex, double start, bool live = false)
      : RawDataInput(std::unique_ptr<ByteSource>(new StringSource(std::move(pieces), ends)), ternIndex, 8192, msecs),
        live_(live) {
    setName("mem");
    guard.restart(start);
    if (live) framer.setEndOfMessage(3);
  }
  int checkForMidnightRollover() const override { return live_; }

 private:
  bool live_;
};

}  // namespace sample_test

#endif
