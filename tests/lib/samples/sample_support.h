// Helpers shared by the raw-sample tests: building sample bytes, scratch
// files, and a site whose time tags are milliseconds of the day.
#ifndef HERON_TESTS_SAMPLE_SUPPORT_H
#define HERON_TESTS_SAMPLE_SUPPORT_H

#include <arpa/inet.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace sample_test {

// One sample as it travels: header (time tag in milliseconds of the day,
// big-endian), data; eom appends the end-of-message byte 3.
struct Record {
  uint32_t ms;
  uint8_t chan;
  std::string data;
};

inline std::string bytesOf(const Record& s, bool eom = false) {
  std::string b;
  const uint32_t tt = htonl(s.ms);
  b.append(reinterpret_cast<const char*>(&tt), 4);
  b += static_cast<char>(s.chan);
  b += static_cast<char>(s.data.size());
  b += s.data;
  if (eom) b += '\3';
  return b;
}

inline std::string bytesOf(const std::vector<Record>& v) {
  std::string b;
  for (const Record& s : v) b += bytesOf(s);
  return b;
}

// Writes a file in the scratch site ($HERON, whose channel table says
// msecs), which goes when the test program ends; returns its path.
std::string writeScratch(const std::string& name, const std::string& bytes);

}  // namespace sample_test

#endif
