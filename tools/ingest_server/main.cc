// Ingest: archives every sample of one station's serial port and serves
// them live over the ingest protocol.
//
//   <station> <descriptor> <device>   as serial_ingest -z starts it (the
//                                     program's name is the station's)
//   Ingest <device>                   by hand: opens the device with the
//                                     settings of its ingest.conf record
//
// One thread and one poll loop over a signalfd, the port, the RPC service
// and the client sockets.  SIGTERM and SIGINT end it with status 0 after the
// archive is written and closed and the service withdrawn; SIGHUP starts a
// new archive file.  See Ingest.8.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "ArchiveWriter.h"
#include "IngestService.h"
#include "base/Exception.h"
#include "base/logit.h"
#include "calconf/ArchiveConfig.h"
#include "calconf/TernList.h"
#include "port/opentty.h"
#include "samples/StreamInputs.h"
#include "site/AllowList.h"
#include "site/IngestConfig.h"

namespace {

double now() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return tv.tv_sec + tv.tv_usec * 1e-6;
}

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

int signalFd() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, s);
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0 || signal(SIGPIPE, SIG_IGN) == SIG_ERR)
    throw oru::IOException("signals", "block", errno);
  int fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) throw oru::IOException("signals", "signalfd", errno);
  return fd;
}

// The raw form of a sample: header (time tag as it came) and data.
size_t wireForm(const RawSample& s, char* out) {
  memcpy(out, &s.tt, 4);
  out[4] = static_cast<char>(s.chan);
  out[5] = static_cast<char>(s.len);
  memcpy(out + RawSample::headLen, static_cast<const char*>(s.data), s.len);
  return RawSample::headLen + s.len;
}

int run(int argc, char** argv) {
  const int sigfd = signalFd();
  Port port = openPort(argc, argv);
  readEveryByte(port);
  const TernList::Entry& module = TernList::TernInfo(port.station.c_str());
  ArchiveConfig archives;
  std::string pattern;
  double period;
  if (!archives.archiveOf(port.station.c_str(), pattern, period))
    throw BadConfigurationException("archive_config names no archive for " + port.station);
  ArchiveWriter archive(archives.directory(), pattern, period);

  InputState input;
  input.station = port.station;
  input.port = port.device;
  input.open = true;
  input.started = now();
  OwlFastoutRawDataInput in(port.device.c_str(), port.station.c_str(), module.number, port.fd);
  in.setNonBlocking(1);
  IngestService service(module.number, input, siteAllowList());
  logit(LOG_NOTICE, "%s on %s: archiving to %s, serving program %#x", port.station.c_str(), port.device.c_str(),
        archives.directory().c_str(), static_cast<unsigned>(INGEST_PROG + module.number));

  RawSample samp;
  char wire[RawSample::headLen + 256];
  double nextFlush = now() + 1;
  // After a read that found samples the port rests kGather seconds: what
  // gathers meanwhile is read, archived and sent to each client in one go,
  // a few system calls every few milliseconds instead of a few per sample.
  // A sample waits at most that long; an idle port is watched for its next
  // byte.
  // One go stops after kBatch bytes, so that each client is offered its
  // share and the sockets are looked at again before more is queued.
  const double kGather = 0.003;
  const size_t kBatch = 16 * 1024;
  double portDue = 0;  // when resting, the time to read the port again
  std::vector<struct pollfd> fds;
  for (;;) {
    fds.assign({{sigfd, POLLIN, 0}, {portDue > 0 ? -1 : port.fd, POLLIN, 0}});
    service.pollFds(fds);
    const double left = (portDue > 0 ? std::min(portDue, nextFlush) : nextFlush) - now();
    const int wait = left > 0 ? static_cast<int>(std::ceil(left * 1000)) : 0;
    if (poll(fds.data(), fds.size(), wait) < 0 && errno != EINTR) throw oru::IOException("poll", "wait", errno);
    if (fds[0].revents & POLLIN) {
      struct signalfd_siginfo si;
      if (read(sigfd, &si, sizeof si) != sizeof si) throw oru::IOException("signals", "read", errno);
      if (si.ssi_signo == SIGHUP) {
        logit(LOG_NOTICE, "SIGHUP: new archive file");
        archive.rotate(now());
      } else {
        logit(LOG_NOTICE, "%s: ending", signame(static_cast<int>(si.ssi_signo)));
        break;
      }
    }
    const double t = now();
    if ((portDue > 0 && t >= portDue) || (fds[1].revents & (POLLIN | POLLHUP | POLLERR))) {
      int got = 0;
      size_t batch = 0;
      for (int r; batch < kBatch && (r = in.readSample(&samp)) != Framer::NoData; ++got) {
        if (r == Framer::FramingError || in.tt_to_secs(static_cast<long>(samp.tt)) == RawDataInput::BIGBANG) {
          ++input.badSerialSamples;
          continue;
        }
        const size_t n = wireForm(samp, wire);
        ++input.samples;
        batch += n;
        archive.append(wire, n, t);
        service.deliver(samp.chan, wire, n);
      }
      service.send();
      // A hung-up line reads as nothing at all, every time: end, and let
      // the supervisor start us again.
      if (got == 0 && (fds[1].revents & POLLHUP)) throw oru::EOFException(port.device.c_str(), "read");
      portDue = batch >= kBatch ? t : got > 0 ? t + kGather : 0;
    }
    service.handle(fds.data(), 2);
    if (now() >= nextFlush) {
      archive.flush(now());
      nextFlush = now() + 1;
    }
  }
  archive.rotate(now());
  close(sigfd);
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
    logit(LOG_ERR, "%s: %s", baseName(argv[0]), e.what());
  }
  return 1;
}
