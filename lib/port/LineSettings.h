// The line settings of one instrument port, as the command line and a serial
// record of ingest.conf give them, for opentty to apply.  The words are kept
// as given: an unknown parity or baud rate is warned about and replaced when
// the port is set up, an unknown flow-control word is refused.
#ifndef HERON_LINESETTINGS_H
#define HERON_LINESETTINGS_H

#include <string>

struct LineSettings {
  int baud;                 // bits per second; 23040 selects 230400
  std::string parity;       // "none", "even" or "odd"
  int databits;             // 5, 6, 7; anything else is 8
  int stopbits;             // 2, or anything else for 1
  std::string flowcontrol;  // "none", "RTS", "CTS" or "RTSCTS"
  int local;                // non-zero: ignore the modem lines (CLOCAL)
};

// True for the four flow-control words a port accepts, compared exactly.
bool knownFlowControl(const std::string& word);

#endif
