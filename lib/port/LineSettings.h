// The line settings of one instrument port, as the command line and a serial
// record of ingest.conf give them, for opentty to apply.  The words are kept
// as given: an unknown parity or baud rate is warned about and replaced when
// the port is set up, an unknown flow-control word is refused.
#ifndef HERON_LINESETTINGS_H
#define HERON_LINESETTINGS_H

#include <termios.h>

#include <string>
#include <vector>

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

// The speed code of a baud rate: true with *code set for a rate of the
// port's table (0 hangs the line up; 23040 asks for 230400), false for any
// other rate and for 50, which a port has always warned about as unknown.
bool baudCode(int baud, speed_t* code);

// True for "none", "even" and "odd", the parities a port sets as asked.
bool knownParity(const std::string& word);

// What a port would not take as written, one text per setting: a rate it
// warns about or that hangs the line up, a parity it warns about, data bits
// other than 5 to 8 or stop bits other than 1 or 2 (which it reads as 8
// and 1), a flow-control word it refuses, and a local word other than
// "local", "LOCAL", "modem" or "MODEM" (any other word means modem control,
// so a misspelt "local" would silently wait for the modem lines).  Empty
// when a port takes every setting as it reads.
std::vector<std::string> lineSettingsFaults(const LineSettings& line, const std::string& localWord);

#endif
