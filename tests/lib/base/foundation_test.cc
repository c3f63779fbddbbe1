// Exceptions, channel masks and byte-order readers.
#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include "rpc/ChanBits.h"
#include "base/Exception.h"
#include "rpc/chan_subs.h"
#include "base/flop_convert.h"

TEST(Exception, MessageForms) {
  oru::IOException io("/dev/ttyS0", "read", EIO);
  EXPECT_EQ(io.toString(), std::string("IOException: /dev/ttyS0: read: ") + strerror(EIO));
  EXPECT_EQ(io.getErrno(), EIO);

  oru::EOFException eof("/dev/ttyS0", "read");
  EXPECT_EQ(eof.toString(), "EOFException: /dev/ttyS0: read: ");
  EXPECT_EQ(eof.getErrno(), 0);

  oru::InterruptedException intr("sock", "select");
  EXPECT_EQ(intr.toString(), "InterruptedException: : sock: select");

  BadConfigurationException wrapped(io);
  EXPECT_EQ(wrapped.toString(), "BadConfigurationException: " + io.toString());

  EXPECT_EQ(oru::IOException("a", "b", "c").toString(), "IOException: a: b: c");
  EXPECT_EQ(oru::Exception::errnoToString(0), "");
}

TEST(ChanMask, BitPositionsAndCounts) {
  uint32_t m[8] = {};
  EXPECT_EQ(number_of_chans(m), 0);
  EXPECT_EQ(next_channel(m), -1);
  set_channel(m, 255);
  EXPECT_EQ(m[7], 0x80000000u);
  set_channel(m, 32);
  EXPECT_EQ(m[1], 1u);
  EXPECT_EQ(next_channel(m), 32);
  EXPECT_EQ(next_channel(m), 32);  // not consumed
  EXPECT_EQ(number_of_chans(m), 2);
  set_channel(m, 256);  // out of range: ignored
  set_channel(m, -1);
  EXPECT_EQ(number_of_chans(m), 2);
  EXPECT_EQ(channel_is_set(m, 255), 1);
  clear_channel(m, 255);
  EXPECT_EQ(channel_is_set(m, 255), 0);
  set_all_channels(m);
  EXPECT_EQ(number_of_chans(m), 256);
  clear_all_channels(m);
  EXPECT_EQ(number_of_chans(m), 0);
}

TEST(ChanBits, MirrorsTheCFunctions) {
  ChanBits b;
  EXPECT_EQ(b.NumSet(), 0);
  EXPECT_TRUE(b.Get().empty());
  b.Set(std::vector<int>{200, 3, 64});
  EXPECT_EQ(b.Get(), (std::vector<int>{3, 64, 200}));
  EXPECT_EQ(b.IsSet(3), 8u);  // the masked bit itself
  EXPECT_EQ(number_of_chans(b), 3);
  ChanBits copy(b);
  EXPECT_TRUE(copy == b);
  copy.Clear(64);
  EXPECT_FALSE(copy == b);
  ChanBits fromWords(static_cast<const uint32_t*>(copy));
  EXPECT_TRUE(fromWords == copy);
  b = copy;
  EXPECT_EQ(b.NumSet(), 2);
  b.Clear();
  EXPECT_EQ(b.NumSet(), 0);
}

TEST(Flop, ReadsReversedAndHostOrder) {
  const unsigned char s[] = {0x01, 0x02};
  EXPECT_EQ(flop_short(s), 258);
  EXPECT_EQ(noflop_short(s), 513);
  const unsigned char neg[] = {0xff, 0xfe};
  EXPECT_EQ(flop_short(neg), -2);
  EXPECT_EQ(flop_ushort(neg), 65534);
  const unsigned char one[] = {0x3f, 0x80, 0x00, 0x00};
  EXPECT_EQ(flop_float(one), 1.0f);
  const unsigned char le_one[] = {0x00, 0x00, 0x80, 0x3f};
  EXPECT_EQ(noflop_float(le_one), 1.0f);
  // Unaligned: read from an odd offset.
  const unsigned char buf[] = {0x00, 0xff, 0xff, 0xff, 0xfe, 0x12, 0x34, 0x56, 0x78};
  EXPECT_EQ(flop_long(buf + 1), -2);
  EXPECT_EQ(flop_ulong(buf + 5), 0x12345678u);
  EXPECT_EQ(noflop_ulong(buf + 5), 0x78563412u);
  EXPECT_EQ(noflop_long(buf + 1), static_cast<int32_t>(0xfeffffffu));
  EXPECT_EQ(noflop_ushort(buf + 5), 0x3412);
}
