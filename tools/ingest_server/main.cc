// Ingest: archives every sample of one station's serial port and serves
// them live over the ingest protocol.
//
//   <station> <descriptor> <device>   as serial_ingest -z starts it (the
//                                     program's name is the station's)
//   Ingest <device>                   by hand: opens the device with the
//                                     settings of its ingest.conf record
//
// One thread and one reactor (base/Reactor.h) over the signals, the port,
// the RPC service and the client sockets.  SIGTERM and SIGINT end it with status 0 after the
// archive is written and closed and the service withdrawn; SIGHUP starts a
// new archive file.  See Ingest.8.
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <stdlib.h>
#include <stdio.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Acquisition.h"
#include "archive/ArchiveWriter.h"
#include "IngestService.h"
#include "base/Exception.h"
#include "base/Reactor.h"
#include "base/logit.h"
#include "archive/ArchiveConfig.h"
#include "site/TernList.h"
#include "port/opentty.h"
#include "samples/StreamInputs.h"
#include "site/AllowList.h"
#include "site/IngestConfig.h"

namespace {

const char* baseName(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

// Where the port comes from: handed over by the daemon, or opened here.
struct Port {
  std::string station, device;
  int fd = -1;
  std::unique_ptr<TTy> tty;  // set when opened here
};

bool allDigits(const char* s) { return *s && strspn(s, "0123456789") == strlen(s); }

Port openPort(int argc, char** argv) {
  Port port;
  if (argc == 3 && allDigits(argv[1])) {
    port.station = baseName(argv[0]);
    port.fd = atoi(argv[1]);
    port.device = argv[2];
    openlogit(port.station.c_str(), LOG_PID, LOG_LOCAL5, getenv("TZ"));  // no terminal: the system log
    return port;
  }
  if (argc != 2) {
    fprintf(stderr, "usage: Ingest <device>\n       <station> <descriptor> <device>\n");
    exit(2);
  }
  IngestConfig config("$HERON/projects/$PROJECT/$OPS/ingest.conf");
  for (const IngestConfigEntry& e : config.stns)
    if (e.type == SERIALPORT && e.portName == argv[1]) {
      port.station = e.stationName;
      port.device = e.portName;
      port.tty = opentty(e.portName, e.lineSettings());
      port.fd = port.tty->fd();
      return port;
    }
  throw BadConfigurationException(std::string(argv[1]) + ": no serial record in ingest.conf");
}

// Every byte wakes the loop: a sample should reach the clients as soon as
// its last byte is in, not when a block of them has gathered.
void readEveryByte(const Port& port) {
  struct termios t;
  if (tcgetattr(port.fd, &t) != 0) throw oru::IOException(port.device.c_str(), "tcgetattr", errno);
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  if (tcsetattr(port.fd, TCSANOW, &t) != 0) throw oru::IOException(port.device.c_str(), "tcsetattr", errno);
}

bool_t xdrNone(XDR*, void*) { return TRUE; }

// Another Ingest of this station is alive when rpcbind holds its program
// and something answers the program's NULL procedure.  A registration left
// by a killed predecessor answers nothing; the service takes it over.
void refuseIfServed(const std::string& station, int moduleNumber) {
  const rpcprog_t prog = static_cast<rpcprog_t>(INGEST_PROG + moduleNumber);
  struct sockaddr_in addr;
  memset(&addr, 0, sizeof addr);
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const u_short port = pmap_getport(&addr, prog, INGEST_VERS, IPPROTO_TCP);
  if (port == 0) return;
  addr.sin_port = htons(port);
  int sock = RPC_ANYSOCK;
  CLIENT* c = clnttcp_create(&addr, prog, INGEST_VERS, &sock, 0, 0);
  if (c == nullptr) return;
  struct timeval wait = {2, 0};
  const enum clnt_stat st = clnt_call(c, NULLPROC, reinterpret_cast<xdrproc_t>(xdrNone), nullptr,
                                      reinterpret_cast<xdrproc_t>(xdrNone), nullptr, wait);
  clnt_destroy(c);
  if (st != RPC_SUCCESS) return;
  char text[160];
  snprintf(text, sizeof text, "program %#lx for %s is already registered: another Ingest serves this station on this computer",
           static_cast<unsigned long>(prog), station.c_str());
  throw std::runtime_error(text);
}

// The loop's handlers: the port when it is readable, the service's
// descriptors after every wait, and one timer at the acquisition's next due
// time (the end of the port's rest or the next flush, a second away at
// most, so the service also runs at least once a second).
void serve(heron::Reactor& loop, int portFd, Acquisition& acq, IngestService& service) {
  heron::Reactor::TimerId timer = 0;
  auto readPort = [&](bool readable, bool hangup) {
    if (acq.serve(readable, hangup) > 0) service.send();
  };
  std::function<void()> pace = [&] {
    loop.setFileEvents(portFd, acq.watchPort() ? POLLIN : 0);
    loop.cancelTimeout(timer);
    timer = loop.addTimeout(acq.pollTimeout() / 1000.0, [&] {
      readPort(false, false);
      acq.tick();
      pace();
    });
  };
  loop.addFileHandler(portFd, POLLIN, [&](short ev) {
    readPort((ev & (POLLIN | POLLHUP | POLLERR)) != 0, (ev & POLLHUP) != 0);
    pace();
  });
  loop.addPollSet([&](std::vector<struct pollfd>& fds) { service.pollFds(fds); },
                  [&](struct pollfd* fds, size_t) { service.handle(fds, 0); });
  pace();
  loop.run();
}

int run(int argc, char** argv) {
  // The signals are taken first: one that comes during the start waits
  // for the loop.
  heron::Reactor loop;
  Acquisition* acquisition = nullptr;  // set before the loop runs
  for (int s : {SIGTERM, SIGINT})
    loop.addSignal(s, [&loop](int sig) {
      logit(LOG_NOTICE, "%s: ending", signame(sig));
      loop.stop();
    });
  loop.addSignal(SIGHUP, [&acquisition](int) {
    logit(LOG_NOTICE, "SIGHUP: new archive file");
    acquisition->rotate();
  });
  if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) throw oru::IOException("SIGPIPE", "signal", errno);
  Port port = openPort(argc, argv);
  readEveryByte(port);
  const TernList::Entry& module = TernList::TernInfo(port.station.c_str());
  ArchiveConfig archives;
  std::string pattern;
  double period;
  if (!archives.archiveOf(port.station.c_str(), pattern, period))
    throw BadConfigurationException("archive_config names no archive for " + port.station);
  ArchiveWriter archive(archives.directory(), pattern, period);
  // An archive that cannot be written stops the start, loudly, before the
  // station is offered to anyone.
  archive.prepare();
  refuseIfServed(port.station, module.number);

  InputState input;
  input.station = port.station;
  input.port = port.device;
  input.open = true;
  OwlFastoutRawDataInput in(port.device.c_str(), port.station.c_str(), module.number, port.fd);
  in.setNonBlocking(1);
  IngestService service(module.number, input, siteAllowList());
  Acquisition acq(in, archive, input, IngestClock::system(),
                  [&service](int chan, const char* p, size_t n) { service.deliver(chan, p, n); });
  acquisition = &acq;
  logit(LOG_NOTICE, "%s on %s: archiving to %s, serving program %#x", port.station.c_str(), port.device.c_str(),
        archives.directory().c_str(), static_cast<unsigned>(INGEST_PROG + module.number));
  serve(loop, in.getFD(), acq, service);  // the descriptor the input reads
  acq.rotate();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
    printf("Usage: Ingest DEVICE\n"
           "Archives the samples of DEVICE, a serial port of $HERON/projects/$PROJECT/$OPS/ingest.conf,\n"
           "and serves them live over the ingest protocol, until SIGTERM or SIGINT.\n"
           "serial_ingest -z starts it as: STATION DESCRIPTOR DEVICE.  See Ingest(8).\n");
    return 0;
  }
  if (argc == 2 && strcmp(argv[1], "--version") == 0) {
    printf("Ingest (%s) %s\n", HERON_PACKAGE, HERON_VERSION);
    return 0;
  }
  try {
    return run(argc, argv);
  } catch (const oru::EOFException& e) {
    logit(LOG_ERR, "%s: the port has closed", baseName(argv[0]));
  } catch (const std::exception& e) {
    // Also on standard error: the supervisor's log shows why a start failed.
    if (syslogit) fprintf(stderr, "%s: %s\n", baseName(argv[0]), e.what());
    logit(LOG_ERR, "%s: %s", baseName(argv[0]), e.what());
  }
  return 1;
}
