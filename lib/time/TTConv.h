// Conversion of the 32-bit time tag of a raw sample to milliseconds of the
// UTC day, by a time-tag type (TTtype.h).  The site's type is read once per
// process from its channel_config, on the first conversion that needs it or
// by an explicit init(); after that a conversion is a few integer
// operations.
#ifndef HERON_TTCONV_H
#define HERON_TTCONV_H

#include <arpa/inet.h>
#include <stdint.h>

#include "time/TTtype.h"

class TTConv {
 public:
  // By the site's type.  netlong holds the tag's four bytes as they arrive
  // (network order) in its low 32 bits.
  static int Msecs(long netlong) {
    if (_ttType == unknown) firstUse();
    return convert(netlong, _ttType == wierd12);
  }

  // By the type given; unknown means the site's.
  static int Msecs(long netlong, TTtype type) {
    return type == unknown ? Msecs(netlong) : convert(netlong, type == wierd12);
  }

  // Reads "$HERON/projects/$PROJECT/$OPS/channel_config" and takes its
  // time-tag type.  Throws BadConfigurationException when the file cannot
  // be opened (the type is then left as it was).
  static void init();

  // The type in force; unknown before the first conversion or init().
  static TTtype type() { return _ttType; }

  // Puts t in force for the rest of the process instead of the site's (a
  // tool told the type on its command line); no file is read then.
  static void setType(TTtype t) { _ttType = t; }

 private:
  static int convert(long netlong, bool w12) {
    const uint32_t v = ntohl(static_cast<uint32_t>(netlong));
    return w12 ? static_cast<int>((v >> 12) * 1000u + (v & 0xfffu)) : static_cast<int>(v);
  }
  // init(), and when the file cannot be read a logged warning and the
  // process-wide type known so far, so that no later conversion retries.
  static void firstUse();

  static TTtype _ttType;
};

#endif
