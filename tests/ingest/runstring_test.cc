// serial_ingest's command line: defaults, option rules and the usage text.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "SerialIngestRunstring.h"
#include "support/subprocess.h"

namespace {
// The parsed strings point into the argument vector, so every vector parsed
// here is kept for the rest of the run.
SerialIngestRunstring parse(std::vector<std::string> given) {
  static std::list<std::vector<std::string>> kept;
  kept.push_back(std::move(given));
  std::vector<std::string>& args = kept.back();
  args.insert(args.begin(), "serial_ingest");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  return SerialIngestRunstring(static_cast<int>(args.size()), argv.data());
}

const char kUsage[] =
    "Usage: " SERIAL_INGEST_BIN
    "\n\t[-B baud_rate]\n\t[-d tty_name]\n\t[-D data_bits]\n\t[-F RTS|CTS|RTSCTS|none]\n\t[-h]\n"
    "\t[-H]\n\t[-L]\n\t[-P parity]\n\t[-T stopbits]\n\t[-v]\n\t[-z]\n\t[-c configFile]\n"
    "  -B baud_rate: default is -B 19200\n"
    "  -d tty_name: name of tty device.  Default is -d /dev/ttya\n"
    "  -D data_bits: number of data bits in tty I/O. Default is -D 8\n"
    "  -F RTS: input flow control. Remote system should suspend output when local system lowers "
    "RTS.\n"
    "  -F CTS: output flow control. Local system should suspend output when remote system lowers "
    "CTS.\n"
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
    "  -c configFile: name of config file, default: $HERON/projects/$PROJECT/$OPS/ingest.conf\n";
}  // namespace

TEST(Runstring, Defaults) {
  SerialIngestRunstring r = parse({});
  EXPECT_STREQ(r.ttyname, "/dev/ttya");
  EXPECT_EQ(r.baud, 19200);
  EXPECT_STREQ(r.parity, "none");
  EXPECT_EQ(r.databits, 8);
  EXPECT_EQ(r.stopbits, 1);
  EXPECT_EQ(r.clocal, 0);
  EXPECT_EQ(r.daemon, 0);
  EXPECT_EQ(r.verbose, 0);
  EXPECT_STREQ(r.flowcontrol, "none");
  EXPECT_STREQ(r.configFile, "$HERON/projects/$PROJECT/$OPS/ingest.conf");
  EXPECT_EQ(r.output, SerialIngestRunstring::SAMPLE);
}

TEST(Runstring, OptionsAndTheirOrder) {
  SerialIngestRunstring r =
      parse({"-B", "9600", "-d", "/dev/ttyS1", "-D", "7", "-T", "2", "-P", "even", "-F", "RTSCTS",
             "-L", "-z", "-c", "/etc/ingest.conf", "-v", "-O", "-H"});
  EXPECT_EQ(r.baud, 9600);
  EXPECT_STREQ(r.ttyname, "/dev/ttyS1");
  EXPECT_EQ(r.databits, 7);
  EXPECT_EQ(r.stopbits, 2);
  EXPECT_STREQ(r.parity, "even");
  EXPECT_STREQ(r.flowcontrol, "RTSCTS");
  EXPECT_EQ(r.clocal, 1);
  EXPECT_EQ(r.daemon, 1);
  EXPECT_EQ(r.verbose, 0);
  EXPECT_STREQ(r.configFile, "/etc/ingest.conf");
  EXPECT_EQ(r.output, SerialIngestRunstring::HEX);  // the later of -O and -H wins
  EXPECT_EQ(parse({"-H", "-O"}).output, SerialIngestRunstring::OCTCHAR);
  EXPECT_EQ(parse({"-B", "fast"}).baud, 0);
  char prog[] = "serial_ingest", flag[] = "-L";
  char* argv[] = {prog, flag, nullptr};
  SerialIngestRunstring direct(2, argv);
  EXPECT_EQ(SerialIngestRunstring::instance(), &direct);
  EXPECT_EQ(direct.clocal, 1);
}

TEST(Runstring, EveryRefusalEndsWithTheUsageAndStatusOne) {
  const std::string usage(kUsage);
  struct Case {
    std::vector<std::string> args;
    std::string before;  // what comes ahead of the usage text
  } cases[] = {
      {{"-h"}, ""},
      {{"-F", "rtscts"}, "Unknown flow control: rtscts\n"},
      {{"-x"}, std::string(SERIAL_INGEST_BIN) + ": invalid option -- 'x'\n"},
      {{"-B"}, std::string(SERIAL_INGEST_BIN) + ": option requires an argument -- 'B'\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> argv{SERIAL_INGEST_BIN};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    RunResult r = runProgram(argv);
    EXPECT_EQ(r.status, 1) << c.args[0];
    EXPECT_EQ(r.err, c.before + usage) << c.args[0];
    EXPECT_EQ(r.out, "");
  }
}
