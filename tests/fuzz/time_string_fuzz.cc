// UTime's text forms on any text, read in UTC and in a zone with daylight
// saving, free-form and with a strptime format, and the result printed: no
// number in the text, however large, may overflow.  Byte 0 chooses the zone.
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "time/UTime.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  UTime::setTZ("Europe/Berlin");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const int local = data[0] & 1;
  char buf[64];
  UTime(local, text.c_str()).to_charstar(buf, sizeof buf, "%Y %j %H:%M:%6F");
  UTime(local, text.c_str(), "%Y %m %d %H:%M:%S").to_charstar(buf, sizeof buf);
  return 0;
}
