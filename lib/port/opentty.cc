#include "port/opentty.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <fstream>
#include <string>

#include "base/Exception.h"
#include "base/logit.h"

namespace {
// The process that took the lock on the port open on fd, from the kernel's
// table of locks ("<n>: FLOCK  ADVISORY  WRITE <pid> <maj>:<min>:<inode> ...");
// 0 when it cannot be told.
long lockHolder(int fd) {
  struct stat st;
  if (fstat(fd, &st) < 0) return 0;
  char want[64];
  snprintf(want, sizeof want, "%02x:%02x:%lu", major(st.st_dev), minor(st.st_dev),
           static_cast<unsigned long>(st.st_ino));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    char kind[16], where[64];
    long pid;
    if (sscanf(line.c_str(), "%*d: %15s %*s %*s %ld %63s", kind, &pid, where) == 3 &&
        std::string(kind) == "FLOCK" && std::string(where) == want)
      return pid;
  }
  return 0;
}

// An exclusive lock on the open port, so that no second program (a dump
// started beside the daemon) can take its bytes.  It belongs to the open
// port, not to the process: a child handed the descriptor holds it, and it
// goes when the last copy of the descriptor is closed.
void lockPort(const TTy& tty) {
  if (flock(tty.fd(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) throw oru::IOException(tty.getName(), "flock", errno);
  const long holder = lockHolder(tty.fd());
  throw oru::IOException(tty.getName(), "lock",
                         holder > 0 ? "port in use: locked by process " + std::to_string(holder)
                                    : std::string("port in use by another program"));
}
}  // namespace

std::unique_ptr<TTy> opentty(const std::string& name, const LineSettings& line) {
  std::unique_ptr<TTy> tty(new TTy(name.c_str()));
  // Non-blocking, so the open does not wait for carrier.
  tty->open(O_RDWR | O_NOCTTY | O_NONBLOCK);
  logit(LOG_INFO, "Opened: %s", name.c_str());
  tty->setblocking();
  if (tty->LKfileExists())
    throw oru::IOException(name, "lock", std::string("file ") + tty->LKfile() + " exists. Is tip running?");
  lockPort(*tty);
  tty->set_usual(line.baud, line.parity.c_str(), line.databits, line.stopbits, line.local);

  tty->iflag() &= ~(INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IUCLC | IXON | IXANY | IXOFF | IMAXBEL);
  tty->iflag() |= IGNBRK;
  tty->oflag() |= OPOST | ONLCR;
  tty->oflag() &= ~(OFILL | OFDEL | NLDLY | CRDLY | TABDLY | BSDLY | VTDLY | FFDLY);
  tty->lflag() &= ~(ISIG | ICANON | ECHO | ECHOCTL | IEXTEN);
  tty->cflag() |= HUPCL;

  if (!knownFlowControl(line.flowcontrol))
    throw oru::IOException(name, "Unknown flow control", line.flowcontrol);
  // There is no input-only RTS flow control on this platform: "RTS" is
  // accepted and leaves the line as it is.
  if (line.flowcontrol == "RTSCTS" || line.flowcontrol == "CTS") tty->cflag() |= CRTSCTS;

  tty->cc()[VMIN] = 128;
  tty->cc()[VTIME] = 0;
  tty->setflags();
  return tty;
}
