// The site's channel table (channel_config): which serial channels, analog
// channels and TTL outputs each acquisition module has, on which interface
// card, whether each is switched on, the sampling rate, gain and offset of
// the analog channels, and the time-tag convention of the site.  The file
// syntax is described in docs/channel_config.md.
//
// A channel_list reads its file whole at construction.  A syntax error is
// not survivable: it is logged as "Error: <what> in line <n> of <file>"
// (or "token too large, exceeds YYLMAX") and the process exits with
// status 1.
#ifndef HERON_CHANNELS_H
#define HERON_CHANNELS_H

#include <memory>
#include <string>

#include "site/SiteFault.h"
#include "time/TTtype.h"

enum hardware { DATEL = 0, IV1624 = 1, IV3234 = 2, DATEL_TTL_OUT = 3, UNKNOWN = 4 };
enum portstat { ON = 0, OFF = 1 };

// Card and status words are case-sensitive; unknown ones give UNKNOWN and
// OFF.  Each list is owned through its head: an entry owns the next one.

// One serial channel.
struct serial_entry {
  // card: "iv1624" or "iv3234"; status: "on" or anything else for OFF.
  serial_entry(std::string tern, const std::string& card, int chan, const std::string& status,
               std::string protocol, std::string msg_and_conv);

  std::string tern;  // acquisition module
  hardware card;
  std::string protocol;
  std::string msg_and_conv;  // message and conversion text
  unsigned char chan;
  portstat status;
  std::unique_ptr<serial_entry> next;
};

// One analog channel.
struct analog_entry {
  // card: "datel"; status as for serial channels.
  analog_entry(std::string tern, const std::string& card, int chan, float hertz, const std::string& status,
               float gain, float offset);

  std::string tern;
  hardware card;
  unsigned char chan;
  float hertz;  // sampling rate
  portstat status;
  float gain;
  float offset;
  std::unique_ptr<analog_entry> next;
};

// One TTL output; always ON.
struct ttloutput_entry {
  // card: "datel_ttl_out"; the times in seconds, kept as whole
  // milliseconds (truncated toward zero).
  ttloutput_entry(std::string tern, const std::string& card, int chan, double start, double on, double off);

  std::string tern;
  hardware card;
  unsigned char chan;
  portstat status;
  int start;  // milliseconds
  int on;
  int off;
  std::unique_ptr<ttloutput_entry> next;
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

  // The first entry of each list, in file order; null when there is none.
  const serial_entry* serialEntries() const { return sentry.get(); }
  const analog_entry* analogEntries() const { return aentry.get(); }
  const ttloutput_entry* ttlEntries() const { return ttlentry.get(); }

  // The expanded name of the file read.
  const std::string& fileName() const { return _file; }

  // The process-wide time-tag type as the files read so far have set it.
  static TTtype processTimeTagType() { return _processTimeTag; }

  // Reads file whole and adds its faults to faults, logging nothing: the
  // first syntax error (reading stops there) and every time-tag word other
  // than msecs or wierd12.  Throws BadConfigurationException when the file
  // cannot be opened.
  static void check(const std::string& file, SiteFaults* faults);

  // For a program that must outlive bad files (a fuzz driver, a checker):
  // when set, a syntax error throws BadConfigurationException with the text
  // that was logged instead of ending the process.
  static void throwOnSyntaxError(bool on) { _throwOnSyntaxError = on; }

 private:
  void release();  // frees the three lists

  std::string _file;
  TTtype _timeTagType;
  std::unique_ptr<serial_entry> sentry;
  std::unique_ptr<analog_entry> aentry;
  std::unique_ptr<ttloutput_entry> ttlentry;

  static TTtype _processTimeTag;
  static bool _throwOnSyntaxError;
};

#endif
