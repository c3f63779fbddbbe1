#include "rpc/ChanBits.h"

#include "rpc/chan_subs.h"

ChanBits::ChanBits() : bits(new uint32_t[ARRAY_SIZE]()) {}

ChanBits::ChanBits(const ChanBits& other) : ChanBits(other.bits.get()) {}

ChanBits::ChanBits(const uint32_t* words) : bits(new uint32_t[ARRAY_SIZE]) {
  for (int i = 0; i < ARRAY_SIZE; ++i) bits[i] = words[i];
}

ChanBits& ChanBits::operator=(const ChanBits& other) {
  for (int i = 0; i < ARRAY_SIZE; ++i) bits[i] = other.bits[i];
  return *this;
}

bool ChanBits::operator==(const ChanBits& other) const {
  for (int i = 0; i < ARRAY_SIZE; ++i)
    if (bits[i] != other.bits[i]) return false;
  return true;
}

void ChanBits::Set(int chan) { set_channel(bits.get(), chan); }

void ChanBits::Set(const std::vector<int>& chans) {
  for (int c : chans) set_channel(bits.get(), c);
}

void ChanBits::Clear() { clear_all_channels(bits.get()); }
void ChanBits::Clear(int chan) { clear_channel(bits.get(), chan); }

uint32_t ChanBits::IsSet(int chan) const {
  if (chan < 0 || chan >= NUM_OF_CHANNELS) return 0;
  return bits[chan / ELEMENT_SIZE] & (UINT32_C(1) << (chan % ELEMENT_SIZE));
}

int ChanBits::NumSet() const {
  int n = 0;
  for (int c = 0; c < NUM_OF_CHANNELS; ++c)
    if (IsSet(c)) ++n;
  return n;
}

std::vector<int> ChanBits::Get() const {
  std::vector<int> out;
  for (int c = 0; c < NUM_OF_CHANNELS; ++c)
    if (IsSet(c)) out.push_back(c);
  return out;
}
