// Opens an instrument port the way the acquisition programs want it: the
// line settings, raw input and output without echo or signal characters,
// the modem lines lowered on last close, the requested flow control, and
// reads that wait for 128 bytes with no inter-byte timer.  Writes
// "Opened: <device>" through logit once the device is open.  The port
// is locked (flock, exclusive) for as long as its descriptor stays open in
// this process or a child; a port locked by another program raises
// "<device>: lock: port in use: locked by process <pid>" (or "port in use by
// another program" when the holder cannot be told).  Raises only
// oru::IOException (an unknown flow-control word among them).
#ifndef HERON_OPENTTY_H
#define HERON_OPENTTY_H

#include <memory>
#include <string>

#include "port/LineSettings.h"
#include "port/TTy.h"

std::unique_ptr<TTy> opentty(const std::string& name, const LineSettings& line);

#endif
