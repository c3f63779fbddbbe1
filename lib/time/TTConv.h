// Conversion of the 32-bit time tag of a raw sample to milliseconds of the
// UTC day, by the site's time-tag type (channels.h).  The type is read once
// per process from the site's channel_config, on the first conversion or
// by an explicit init(); after that a conversion is a few integer
// operations.
#ifndef HERON_TTCONV_H
#define HERON_TTCONV_H

#include <arpa/inet.h>
#include <stdint.h>

#include "site/channels.h"

class TTConv {
 public:
  // netlong holds the tag's four bytes as they arrive (network order) in
  // its low 32 bits.
  static int Msecs(long netlong) {
    if (_ttType == unknown) firstUse();
    const uint32_t v = ntohl(static_cast<uint32_t>(netlong));
    if (_ttType == wierd12) return static_cast<int>((v >> 12) * 1000u + (v & 0xfffu));
    return static_cast<int>(v);
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
  // init(), and when the file cannot be read a logged warning and the
  // process-wide type known so far, so that no later conversion retries.
  static void firstUse();

  static TTtype _ttType;
};

#endif
