// The line settings and the mode that a command line asks for, the line
// settings of an ingest.conf record, and the refusals of the command line.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <tuple>
#include <vector>

#include "SerialIngestRunstring.h"
#include "site/IngestConfig.h"
#include "support/subprocess.h"

namespace {
using RS = SerialIngestRunstring;

// The parsed strings point into the argument vector, so every vector parsed
// here is kept for the rest of the run.
RS parse(std::vector<std::string> given) {
  static std::list<std::vector<std::string>> kept;
  kept.push_back(std::move(given));
  std::vector<std::string>& args = kept.back();
  args.insert(args.begin(), "serial_ingest");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  return RS(static_cast<int>(args.size()), argv.data());
}

auto fields(const LineSettings& l) {
  return std::make_tuple(l.baud, l.parity, l.databits, l.stopbits, l.flowcontrol, l.local);
}

const char kUsage[] =
    "Usage: " SERIAL_INGEST_BIN "\n\t[-B baud_rate]\n\t[-d tty_name]\n\t[-D data_bits]\n\t[-F RTS|CTS|RTSCTS|none]\n"
    "\t[-h]\n\t[-H]\n\t[-L]\n\t[-P parity]\n\t[-T stopbits]\n\t[-v]\n\t[-z]\n\t[-c configFile]\n"
    "  -B baud_rate: default is -B 19200\n  -d tty_name: name of tty device.  Default is -d /dev/ttya\n"
    "  -D data_bits: number of data bits in tty I/O. Default is -D 8\n"
    "  -F RTS: input flow control. Remote system should suspend output when local system lowers RTS.\n"
    "  -F CTS: output flow control. Local system should suspend output when remote system lowers CTS.\n"
    "  -F RTSCTS: both input and output flow control\n  -F none (default): wing it\n"
    "  -h: print this help message\n  -H: hex (debugging) output\n"
    "  -L: Set CLOCAL bit, i.e. don't monitor carrier detect line. Default is modem control\n"
    "  -O: octal & character (debugging) output\n  -P parity: none|even|odd.  Default is -P none\n"
    "  -T stop_bits: number of stop bits in tty I/O. Default is -T 1\n  -v: verbose, debug mode\n"
    "  -z: daemon mode. Exec ingest processes for every entry config file\n"
    "  -c configFile: name of config file, default: $HERON/projects/$PROJECT/$OPS/ingest.conf\n";
}  // namespace

TEST(Runstring, OptionsGiveTheLineSettingsAndTheMode) {
  const char* conf = "$HERON/projects/$PROJECT/$OPS/ingest.conf";
  struct Case { std::vector<std::string> args; LineSettings line; const char* tty; RS::outType output; int daemon; const char* config; } cases[] = {
      {{}, {19200, "none", 8, 1, "none", 0}, "/dev/ttya", RS::SAMPLE, 0, conf},
      {{"-v"}, {19200, "none", 8, 1, "none", 0}, "/dev/ttya", RS::SAMPLE, 0, conf},  // accepted, changes nothing
      {{"-B", "9600", "-d", "/dev/ttyS1", "-D", "7", "-T", "2", "-P", "even", "-F", "RTSCTS", "-L", "-z", "-c", "/i.conf",
        "-O", "-H"},
       {9600, "even", 7, 2, "RTSCTS", 1}, "/dev/ttyS1", RS::HEX, 1, "/i.conf"},
      // The later of -H and -O wins; numbers and parity are the port's to judge.
      {{"-H", "-O", "-B", "fast", "-D", "x", "-P", "Even", "-F", "RTS"}, {0, "Even", 0, 1, "RTS", 0}, "/dev/ttya",
       RS::OCTCHAR, 0, conf},
  };
  for (const Case& c : cases) {
    RS r = parse(c.args);
    EXPECT_EQ(fields(r.lineSettings()), fields(c.line)) << c.args.size();
    EXPECT_EQ(std::make_tuple(std::string(r.ttyname), r.output, r.daemon, std::string(r.configFile), r.verbose),
              std::make_tuple(std::string(c.tty), c.output, c.daemon, std::string(c.config), 0));
    EXPECT_EQ(RS::instance(), &r);
  }
}

TEST(Runstring, IngestConfRecordGivesTheLineSettings) {
  struct Case { const char* local; int flag; } cases[] = {{"local", 1}, {"LOCAL", 1}, {"Local", 0}, {"modem", 0}};
  for (const Case& c : cases) {
    IngestConfigEntry e("sonic1", "-", "/dev/ttyS0", 23040, "odd", 7, 2, "CTS", c.local);
    EXPECT_EQ(fields(e.lineSettings()), fields({23040, "odd", 7, 2, "CTS", c.flag})) << c.local;
  }
}

TEST(Runstring, EveryRefusalEndsWithStatusOne) {
  const std::string usage(kUsage), me(SERIAL_INGEST_BIN);
  struct Case { std::vector<std::string> args; std::string err; } cases[] = {
      {{"-h"}, usage},
      {{"-F", "rtscts"}, "Unknown flow control: rtscts\n" + usage},
      {{"-x"}, me + ": invalid option -- 'x'\n" + usage},
      {{"-B"}, me + ": option requires an argument -- 'B'\n" + usage},
      {{"-H", "-d", "/nonexistent/tty"}, "IOException: /nonexistent/tty: open: No such file or directory\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> argv{me};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    RunResult r = runProgram(argv);
    EXPECT_EQ(r.status, 1) << c.args[0];
    EXPECT_EQ(r.err, c.err) << c.args[0];
    EXPECT_EQ(r.out, "");
  }
}
