// The serial_ingest application: chooses the mode from the command line,
// opens ports, dumps their traffic, and (in daemon mode) supervises one
// acquisition process per configured port.
#ifndef SERIAL_INGEST_H
#define SERIAL_INGEST_H

#include <signal.h>

#include <map>
#include <string>

#include "SerialIngestRunstring.h"

class TTy;

class SerialIngest {
 public:
  SerialIngest(int argc, char** argv);
  ~SerialIngest();

  SerialIngest(const SerialIngest&) = delete;
  SerialIngest& operator=(const SerialIngest&) = delete;

  static SerialIngest* instance() { return _instance; }

  // daemonMode() with -z, else debugMode().  Negative on failure.
  int run();
  int debugMode();

  // Dump the port's bytes to standard output until the line ends or fails:
  // each ends with an exception (oru::EOFException when a read returns
  // nothing: the line hung up or the adapter went away).
  int octout(TTy* tty);
  int hexout(TTy* tty);

  // Opens and configures an instrument port: line settings, raw input,
  // flow control, 128-byte reads.  The caller owns the result.
  TTy* opentty(const char* name, int baud, const char* parity, int databits, int stopbits,
               const char* flowcontrol, int local);

  static void staticSignalHandler(int sig);
  void signalHandler(int sig);

 private:
  const char* _appname;
  SerialIngestRunstring _rstr;
  int _interrupt;
  int _reconfig;
  std::map<std::string, int> _childProcs;

  static SerialIngest* _instance;
};

// Leaves the controlling terminal: forks (the parent exits 0), closes every
// descriptor, points the standard streams away from the terminal and starts
// a new session.
void disassociate();

#endif
