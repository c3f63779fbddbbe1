// A 256-channel mask owning its eight 32-bit words; converts to the bare word
// array that the C mask functions and the ingest protocol take.
#ifndef HERON_CHANBITS_H
#define HERON_CHANBITS_H

#include <stdint.h>

#include <memory>
#include <vector>

class ChanBits {
 public:
  enum { NUM_OF_CHANNELS = 256, ELEMENT_SIZE = 32, ARRAY_SIZE = 8 };

  ChanBits();
  ChanBits(const ChanBits& other);
  explicit ChanBits(const uint32_t* words);
  ChanBits& operator=(const ChanBits& other);
  bool operator==(const ChanBits& other) const;

  void Set(int chan);
  void Set(const std::vector<int>& chans);
  void Clear();
  void Clear(int chan);
  // Non-zero when set: the masked bit of its word, not normalised to 1.
  uint32_t IsSet(int chan) const;
  int NumSet() const;
  // Set channels in ascending order.
  std::vector<int> Get() const;
  operator uint32_t*() { return bits.get(); }
  operator const uint32_t*() const { return bits.get(); }

 private:
  std::unique_ptr<uint32_t[]> bits;
};

#endif
