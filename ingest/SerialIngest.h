// The serial_ingest application object: chooses the mode from the command
// line and runs it.  Its work lies in one file per job: the single-port
// outputs (SerialIngestOutput.cc), the supervisor of daemon mode
// (SerialIngestDaemon.cc), and leaving the terminal and the privileges
// (detach.h).
#ifndef SERIAL_INGEST_H
#define SERIAL_INGEST_H

#include <signal.h>

#include <map>
#include <memory>
#include <string>

#include "RestartPolicy.h"
#include "SerialIngestRunstring.h"
#include "base/Reactor.h"

// Built-in name of the module whose fast output sampling mode reads; a
// build may set its own (-DSERIAL_INGEST_DEFAULT_TERN=\"name\").
#ifndef SERIAL_INGEST_DEFAULT_TERN
#define SERIAL_INGEST_DEFAULT_TERN "tern1"
#endif

class IngestConfig;
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
  // Supervises one "Ingest" process per serial port of this host until
  // SIGINT; see the manual page.
  int daemonMode();

  // Prints one line per raw sample that arrives on the port, "  " before a
  // good one and "B " before one dropped for a missing end-of-message byte,
  // each line flushed at once.  Ends only with an exception (the line hung
  // up, a read failed, a signal arrived).
  int sampleOutput(TTy* tty);

  // The acquisition module that sampled records are attributed to:
  // $SERIAL_INGEST_TERN when set and not empty, else the built-in default.
  static const char* fastoutModuleName();

  // Dump the port's bytes to standard output until the line ends or fails:
  // each ends with an exception (oru::EOFException when a read returns
  // nothing: the line hung up or the adapter went away).
  int octout(TTy* tty);
  int hexout(TTy* tty);

  // What SIGCHLD (reap the children), SIGHUP and SIGINT do; daemon mode's
  // loop calls it for each of them it takes, between its steps.
  static void staticSignalHandler(int sig);
  // Takes the signals that have come and says whether SIGINT has asked the
  // supervisor to end (a C-callable test for the remote-procedure waits).
  static int interruptAsked();
  void signalHandler(int sig);

  // Asks the acquisition-module server for variable `name`; when it differs
  // from `value`, puts it into the environment and keeps it in `value`.
  // A server that cannot be asked is logged and changes nothing.
  void setEnvVar(const char* name, std::string& value);

  // Station name to child process id (0 while none runs).
  const std::map<std::string, int>& childProcs() const { return _childProcs; }

 private:
  // What every "Ingest" process starts with besides the port: the signal
  // mask the supervisor was started with, and the nice value to go back to
  // (kInheritNice: keep the supervisor's).
  struct ChildSetup {
    sigset_t mask;
    int nice;
  };

  // Starts the "Ingest" process of one serial entry; false when its port
  // could not be opened or no process could be made.
  bool startChild(const struct IngestConfigEntry& entry, const ChildSetup& setup, RestartPolicy& policy);
  // The supervisor's steps, run by its loop (SerialIngestDaemon.cc): the
  // start-up, a pass over the table, the scan of its entries and the start
  // of one, a signal; after() sets the one timer for the next step and
  // finish() ends the loop with daemonMode's result.
  bool startDaemon();
  void pass();
  void scan();
  void startNext();
  void onSignal(int sig);
  // Takes the signals that have come; true when one ended the supervisor.
  bool interruptedNow();
  void after(double seconds, void (SerialIngest::*step)());
  void finish(int result);

  const char* _appname;
  SerialIngestRunstring _rstr;
  std::unique_ptr<IngestConfig> _cfg;
  volatile sig_atomic_t _interrupt;
  volatile sig_atomic_t _reconfig;
  std::map<std::string, int> _childProcs;
  std::string _project;
  std::string _ops;
  std::map<std::string, RestartPolicy> _restarts;  // by station name

  // Daemon mode's state between its steps.
  static const int kRunning = 1;  // _result until finish()
  heron::Reactor* _loop = nullptr;
  ChildSetup _setup;
  std::string _myname, _myShortName;  // this host's node name, and up to its first "."
  int _result = kRunning;
  bool _ask = true;       // the next pass asks the module server again
  bool _midPass = false;  // a pass is under way (perhaps waiting to start a child)
  bool _anything = false; // the pass has found an entry for this host
  size_t _next = 0;       // the entry the pass looks at next
  double _wake = -1;      // when a backed-off or failed start is due, -1: none
  heron::Reactor::TimerId _timer = 0;  // the step set for later

  static SerialIngest* _instance;
};

#endif
