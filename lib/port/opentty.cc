#include "port/opentty.h"

#include <fcntl.h>
#include <stdio.h>

#include "base/Exception.h"

std::unique_ptr<TTy> opentty(const std::string& name, const LineSettings& line) {
  std::unique_ptr<TTy> tty(new TTy(name.c_str()));
  // Non-blocking, so the open does not wait for carrier.
  tty->open(O_RDWR | O_NOCTTY | O_NONBLOCK);
  fprintf(stderr, "Opened: %s\n", name.c_str());
  tty->setblocking();
  if (tty->LKfileExists())
    throw oru::IOException(name, "lock", std::string("file ") + tty->LKfile() + " exists. Is tip running?");
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
