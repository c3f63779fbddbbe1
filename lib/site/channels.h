// The site's channel table (channel_config): which serial channels, analog
// channels and TTL outputs each acquisition module has, on which interface
// card, whether each is switched on, the sampling rate, gain and offset of
// the analog channels, and the time-tag convention of the site.  The file
// syntax is described in docs/channel_config.md.
//
// A channel_list reads its file whole at construction.  A syntax error is
// not survivable: it is logged as "Error: <what> in line <n> of <file>"
// and the process exits with status 1.
#ifndef HERON_CHANNELS_H
#define HERON_CHANNELS_H

#include <string>

#include "time/TTtype.h"

enum hardware { DATEL = 0, IV1624 = 1, IV3234 = 2, DATEL_TTL_OUT = 3, UNKNOWN = 4 };
enum portstat { ON = 0, OFF = 1 };

// The entries own their strings (malloc'ed, as the scanner delivers them);
// the card and status words are translated and released.  Card and status
// words are case-sensitive; unknown ones give UNKNOWN and OFF.

// One serial channel.
struct serial_entry {
  // card: "iv1624" or "iv3234"; status: "on" or anything else for OFF.
  serial_entry(char* tern, char* card, int chan, char* status, char* protocol,
               char* msg_and_conv);
  ~serial_entry();
  serial_entry(const serial_entry&) = delete;
  serial_entry& operator=(const serial_entry&) = delete;

  char* tern;  // acquisition module
  hardware card;
  char* protocol;
  char* msg_and_conv;  // message and conversion text
  unsigned char chan;
  portstat status;
  serial_entry* next;
};

// One analog channel.
struct analog_entry {
  // card: "datel"; status as for serial channels.
  analog_entry(char* tern, char* card, int chan, float hertz, char* status, float gain,
               float offset);
  ~analog_entry();
  analog_entry(const analog_entry&) = delete;
  analog_entry& operator=(const analog_entry&) = delete;

  char* tern;
  hardware card;
  unsigned char chan;
  float hertz;  // sampling rate
  portstat status;
  float gain;
  float offset;
  analog_entry* next;
};

// One TTL output; always ON.
struct ttloutput_entry {
  // card: "datel_ttl_out"; the times in seconds, kept as whole
  // milliseconds (truncated toward zero).
  ttloutput_entry(char* tern, char* card, int chan, double start, double on, double off);
  ~ttloutput_entry();
  ttloutput_entry(const ttloutput_entry&) = delete;
  ttloutput_entry& operator=(const ttloutput_entry&) = delete;

  char* tern;
  hardware card;
  unsigned char chan;
  portstat status;
  int start;  // milliseconds
  int on;
  int off;
  ttloutput_entry* next;
};

class channel_list {
 public:
  // Reads file (a name with "$" components, see heron_fopen.h).  Throws
  // BadConfigurationException when it cannot be opened.
  explicit channel_list(const char* file = "$HERON/projects/$PROJECT/$OPS/channel_config");
  ~channel_list();
  channel_list(const channel_list&) = delete;
  channel_list& operator=(const channel_list&) = delete;

  // Gain and offset of analog channel chan (0..199) of module tern, from
  // the first matching entry; 1.0 and 0.0 when none matches.
  void AnalogGainOffset(const char* tern, int chan, float* gain, float* offset) const;

  // The site's time-tag type.  It is process-wide: msecs until some file
  // names "wierd12", and wierd12 from then on, also for later files that
  // name none.
  TTtype timeTagType() const { return _timeTagType; }

  // The entries in file order.
  const serial_entry* serialEntries() const { return sentry; }
  const analog_entry* analogEntries() const { return aentry; }
  const ttloutput_entry* ttlEntries() const { return ttlentry; }

  // The expanded name of the file read.
  const std::string& fileName() const { return _file; }

  // The process-wide time-tag type as the files read so far have set it.
  static TTtype processTimeTagType() { return _processTimeTag; }

 private:
  void release();  // frees the three lists

  std::string _file;
  TTtype _timeTagType;
  serial_entry* sentry;
  analog_entry* aentry;
  ttloutput_entry* ttlentry;

  static TTtype _processTimeTag;
};

#endif
