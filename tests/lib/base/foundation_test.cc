// Exception texts, channel masks and byte-order readers.
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include "base/Exception.h"
#include "base/flop_convert.h"
#include "rpc/ChanBits.h"
#include "rpc/chan_subs.h"

TEST(Exception, MessageForms) {
  const oru::IOException io("/dev/ttyS0", "read", EIO);
  const struct {
    const oru::Exception& e;
    std::string text;
  } cases[] = {
      {io, std::string("IOException: /dev/ttyS0: read: ") + strerror(EIO)},
      {oru::EOFException("/dev/ttyS0", "read"), "EOFException: /dev/ttyS0: read: "},  // trailing separator
      {oru::InterruptedException("sock", "select"), "InterruptedException: : sock: select"},  // doubled
      {BadConfigurationException(io), "BadConfigurationException: IOException: /dev/ttyS0: read: " +
                                          std::string(strerror(EIO))},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.e.toString(), c.text);
    EXPECT_EQ(c.e.what(), c.text);
  }
}

TEST(ChanMask, BitPositionsAndCounts) {
  ChanBits b;
  EXPECT_EQ(next_channel(b), -1);
  b.Set(std::vector<int>{255, 32, 3, 256, -1});  // out of range: ignored
  const uint32_t* w = b;
  EXPECT_EQ(w[7], 0x80000000u);
  EXPECT_EQ(w[1], 1u);
  EXPECT_EQ(b.IsSet(3), 8u);  // the masked bit itself
  EXPECT_EQ(next_channel(b) * 1000 + next_channel(b), 3003);  // not consumed
  EXPECT_EQ(b.Get(), (std::vector<int>{3, 32, 255}));
  EXPECT_EQ(number_of_chans(b), 3);
  ChanBits copy(b);
  copy.Clear(255);
  EXPECT_FALSE(copy == b);
}

TEST(Flop, ReadsReversedAndHostOrder) {
  // Unaligned: the numbers start at odd offsets.
  const unsigned char buf[] = {0x00, 0xff, 0xfe, 0x12, 0x34, 0x56, 0x78, 0x3f, 0x80, 0x00, 0x00, 0x80, 0x3f};
  EXPECT_EQ(flop_short(buf + 1), -2);
  EXPECT_EQ(flop_ulong(buf + 3), 0x12345678u);
  EXPECT_EQ(noflop_ulong(buf + 3), 0x78563412u);
  EXPECT_EQ(flop_long(buf), 0x00fffe12);
  EXPECT_EQ(noflop_long(buf + 1), 0x3412feff);
  EXPECT_EQ(flop_float(buf + 7), 1.0f);
  EXPECT_EQ(noflop_float(buf + 9), 1.0f);
}
