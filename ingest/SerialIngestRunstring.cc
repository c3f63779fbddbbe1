#include "SerialIngestRunstring.h"
#include "base/fatal.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

SerialIngestRunstring* SerialIngestRunstring::_instance = nullptr;

SerialIngestRunstring::SerialIngestRunstring(int argc, char** argv)
    : ttyname(nullptr),
      default_ttyname("/dev/ttya"),
      baud(19200),
      parity("none"),
      databits(8),
      stopbits(1),
      clocal(0),
      daemon(0),
      verbose(0),
      configFile(nullptr),
      default_configFile("$HERON/projects/$PROJECT/$OPS/ingest.conf"),
      flowcontrol("none"),
      output(SAMPLE) {
  ttyname = default_ttyname;
  configFile = default_configFile;

  bool badOption = false;
  optind = 0;  // full rescan, so that a second command line parses from the start
  int c;
  while ((c = getopt(argc, argv, "B:c:d:D:F:hHLOP:T:vz")) != -1) {
    switch (c) {
      case 'B': baud = atoi(optarg); break;
      case 'c': configFile = optarg; break;
      case 'd': ttyname = optarg; break;
      case 'D': databits = atoi(optarg); break;
      case 'F': flowcontrol = optarg; break;
      case 'h': Usage(argv[0]);
      case 'H': output = HEX; break;
      case 'L': clocal = 1; break;
      case 'O': output = OCTCHAR; break;
      case 'P': parity = optarg; break;
      case 'T': stopbits = atoi(optarg); break;
      case 'v': break;  // accepted for old scripts; changes nothing
      case 'z': daemon = 1; break;
      default: badOption = true; break;
    }
  }
  if (!knownFlowControl(flowcontrol)) {
    fprintf(stderr, "Unknown flow control: %s\n", flowcontrol);
    Usage(argv[0]);
  }
  if (badOption) Usage(argv[0]);
  _instance = this;
}

LineSettings SerialIngestRunstring::lineSettings() const {
  return LineSettings{baud, parity, databits, stopbits, flowcontrol, clocal};
}

void SerialIngestRunstring::Usage(const char* argv0) {
  fprintf(stderr,
          "Usage: %s\n"
          "\t[-B baud_rate]\n"
          "\t[-d tty_name]\n"
          "\t[-D data_bits]\n"
          "\t[-F RTS|CTS|RTSCTS|none]\n"
          "\t[-h]\n"
          "\t[-H]\n"
          "\t[-L]\n"
          "\t[-P parity]\n"
          "\t[-T stopbits]\n"
          "\t[-v]\n"
          "\t[-z]\n"
          "\t[-c configFile]\n"
          "  -B baud_rate: default is -B 19200\n"
          "  -d tty_name: name of tty device.  Default is -d %s\n"
          "  -D data_bits: number of data bits in tty I/O. Default is -D 8\n"
          "  -F RTS: input flow control. Remote system should suspend output when local system lowers RTS.\n"
          "  -F CTS: output flow control. Local system should suspend output when remote system lowers CTS.\n"
          "  -F RTSCTS: both input and output flow control\n"
          "  -F none (default): wing it\n"
          "  -h: print this help message\n"
          "  -H: hex (debugging) output\n"
          "  -L: Set CLOCAL bit, i.e. don't monitor carrier detect line. Default is modem control\n"
          "  -O: octal & character (debugging) output\n"
          "  -P parity: none|even|odd.  Default is -P none\n"
          "  -T stop_bits: number of stop bits in tty I/O. Default is -T 1\n"
          "  -v: verbose, debug mode\n"
          "  -z: daemon mode. Exec ingest processes for every entry config file\n"
          "  -c configFile: name of config file, default: %s\n",
          argv0, default_ttyname, default_configFile);
  exit_status_1();
}
