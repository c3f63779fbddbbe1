// ingest.conf: the station table.  Each record says which host's ingest
// server receives a station's data and how the data arrive: a serial port
// with its line settings, or a network socket.  Records are whitespace-
// separated words and may run over line breaks; a record whose first word
// starts with "#" is a comment to the end of its line.
#ifndef HERON_INGESTCONFIG_H
#define HERON_INGESTCONFIG_H

#include <stddef.h>

#include <string>
#include <vector>

#include "port/LineSettings.h"
#include "site/SiteFault.h"

enum ingestType { SERIALPORT = 0, SOCKET = 1 };

struct IngestConfigEntry {
  // A serial-port record.
  IngestConfigEntry(const char* sn, const char* is, const char* pn, int bd, const char* pty, int db,
                    int sb, const char* fc, const char* l);
  // A socket record: the line settings are empty or 0 and mean nothing.
  IngestConfigEntry(const char* sn, const char* is, const char* pn);

  // The line settings of a serial record, for opening its port: the local
  // word "local" or "LOCAL" means ignore the modem lines, any other word
  // means modem control.
  LineSettings lineSettings() const;

  std::string stationName;
  std::string ingestServer;
  std::string portName;
  ingestType type;
  int baud;
  std::string parity;
  int databits;
  int stopbits;
  std::string flowcontrol;
  std::string local;
};

class IngestConfig {
 public:
  // Reads the whole file ("$" components expanded from the environment).
  // Throws BadConfigurationException when it cannot be opened or read; a
  // malformed serial record is logged ("bad line in <file>: i = ") and
  // skipped.
  explicit IngestConfig(const char* configFile);
  ~IngestConfig();

  // Reads the table at file (a name with "$" components) and adds every
  // fault to faults with its line, logging nothing: a record cut short, a
  // word where a number belongs, and settings a port would not take as
  // written (lineSettingsFaults).  Throws as the constructor for a file
  // that cannot be opened or read.
  static void check(const std::string& file, SiteFaults* faults);

  size_t size() const { return stns.size(); }
  const IngestConfigEntry& operator[](size_t i) const { return stns[i]; }

  std::vector<IngestConfigEntry> stns;  // file order, duplicates kept
};

// The host of the ingest server for a station, from the default ingest.conf;
// else $INGEST_SERVER; else "heron".  A table that cannot be read throws
// BadConfigurationException.
std::string ingestServer(const char* stnName);

#endif
