// FullDataSample::Output in each form, byte for byte (x86: the binary forms
// are in host order, little-endian here).
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include <gtest/gtest.h>

#include "calconfig/TaggedSample.h"
#include "support/reported.h"

namespace {

using namespace std::string_literals;

// Two samples: a at 13:02:03.500 UTC (46923500 ms of the day) with 1.5 and
// an unnamed -2, b at 00:00:00.250 with 0.125 written by the format it is
// given.  BIN leaves the unnamed value out.
TEST(FullDataSampleOutput, EachFormatByteForByte) {
  HeronDataId seven{"a.s", 7, nullptr, "", 0}, nine{"b.s", 9, nullptr, "", 0};
  HeronDataId* idsA[] = {&seven, nullptr};
  HeronDataId* idsB[] = {&nine};
  const float valuesA[] = {1.5f, -2.0f}, valuesB[] = {0.125f};
  const FullDataSample a(1795266123.5, valuesA, 2, idsA), b(1795219200.25, valuesB, 1, idsB);
  const char* const formatsB[] = {" %.3f"};
  const std::string textA = "         1.5          -2", textB = " 0.125";
  const struct {
    outputFormat format;
    std::string bytes;
  } cases[] = {
      {HMS, "13:02:03.500 " + textA + "00:00:00.250 " + textB},
      {MSEC, "46923500 " + textA + "     250 " + textB},
      {ASCIICOLUMN, "46923500 " + textA + "     250 " + textB},
      {HOUR, "13.034306 " + textA + "00.000069 " + textB},
      {BIN, "\xff\xff\xec\xfe\xcb\x02\x07\x00\x00\x00\x00\x00\x00\x00\xf8\x3f"
            "\xff\xff\xfa\x00\x00\x00\x09\x00\x00\x00\x00\x00\x00\x00\xc0\x3f"s},
      {BINCOLUMN, "\x00\x00\xe0\x92\x65\xc0\xda\x41\x00\x00\xc0\x3f\x00\x00\x00\xc0"
                  "\x00\x00\x10\xc0\x37\xc0\xda\x41\x00\x00\x00\x3e"s},
  };
  for (const auto& c : cases) {
    char* buf = nullptr;
    size_t len = 0;
    FILE* out = open_memstream(&buf, &len);
    ASSERT_NE(out, nullptr);
    a.Output(out, c.format, nullptr);
    b.Output(out, c.format, formatsB);
    ASSERT_EQ(fclose(out), 0);
    EXPECT_EQ(std::string(buf, len), c.bytes) << c.format;
    free(buf);
  }
  EXPECT_EQ(heron_test::reported([&] { a.Output(stdout, NETCDF, nullptr); }),
            "Programming error, type = 6 not supported\n[exit 1]");
}

}  // namespace
