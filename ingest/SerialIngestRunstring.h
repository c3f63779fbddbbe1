// The command line of serial_ingest, parsed once at start-up into settings
// with defaults.  A bad option, an unknown flow-control word or -h prints the
// usage text and ends the process with status 1.
#ifndef SERIAL_INGEST_RUNSTRING_H
#define SERIAL_INGEST_RUNSTRING_H

#include "port/LineSettings.h"

class SerialIngestRunstring {
 public:
  enum outType { SAMPLE = 0, OCTCHAR = 1, HEX = 2 };

  SerialIngestRunstring(int argc, char** argv);

  // The most recently parsed command line.
  static SerialIngestRunstring* instance() { return _instance; }

  [[noreturn]] void Usage(const char* argv0);

  // The port's line settings as given: -B, -P, -D, -T, -F and -L.
  LineSettings lineSettings() const;

  // The strings point into argv or at the built-in defaults.
  const char* ttyname;
  const char* default_ttyname;
  int baud;
  const char* parity;
  int databits;
  int stopbits;
  int clocal;
  int daemon;
  int verbose;  // no option sets it
  const char* configFile;
  const char* default_configFile;
  const char* flowcontrol;
  outType output;

 private:
  static SerialIngestRunstring* _instance;
};

#endif
