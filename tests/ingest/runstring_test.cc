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

RS parse(std::vector<std::string> args) {
  static std::list<std::vector<std::string>> kept;  // the parsed strings point into it
  args.insert(args.begin(), "serial_ingest");
  std::vector<char*> argv;
  for (std::string& a : kept.emplace_back(std::move(args))) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  return RS(static_cast<int>(argv.size() - 1), argv.data());
}

auto fields(const LineSettings& l) {
  return std::make_tuple(l.baud, l.parity, l.databits, l.stopbits, l.flowcontrol, l.local);
}
}  // namespace

TEST(Runstring, OptionsGiveTheLineSettingsAndTheMode) {
  const std::string conf = "$HERON/projects/$PROJECT/$OPS/ingest.conf";
  // rest: device, output type (0 samples, 1 octal, 2 hex), daemon, table, verbose.
  struct Case { std::vector<std::string> args; LineSettings line; std::string rest; } cases[] = {
      {{}, {19200, "none", 8, 1, "none", 0}, "/dev/ttya 0 0 " + conf + " 0"},
      // -v is accepted and changes nothing; the later of -H and -O wins.
      {{"-B", "9600", "-d", "/dev/ttyS1", "-D", "7", "-T", "2", "-P", "even", "-F", "RTSCTS", "-L", "-z", "-c", "/i.conf",
        "-v", "-O", "-H"},
       {9600, "even", 7, 2, "RTSCTS", 1}, "/dev/ttyS1 2 1 /i.conf 0"},
      // Numbers and parity are the port's to judge.
      {{"-H", "-O", "-B", "fast", "-D", "x", "-P", "Even", "-F", "RTS"}, {0, "Even", 0, 1, "RTS", 0},
       "/dev/ttya 1 0 " + conf + " 0"},
  };
  for (const Case& c : cases) {
    RS r = parse(c.args);
    EXPECT_EQ(fields(r.lineSettings()), fields(c.line)) << c.rest;
    EXPECT_EQ(std::string(r.ttyname) + " " + std::to_string(r.output) + " " + std::to_string(r.daemon) + " " +
                  r.configFile + " " + std::to_string(r.verbose),
              c.rest);
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

// The usage text itself is the program's own table; what matters here is
// that every refusal ends with it, after its own reason.
TEST(Runstring, EveryRefusalEndsWithStatusOne) {
  const std::string me(SERIAL_INGEST_BIN), usage = runProgram({me, "-h"}).err;
  EXPECT_EQ(usage.substr(0, usage.find('\n', 8 + me.size()) + 1), "Usage: " + me + "\n\t[-B baud_rate]\n");
  EXPECT_NE(usage.find("Default is -d /dev/ttya\n"), std::string::npos);
  EXPECT_NE(usage.find("default: $HERON/projects/$PROJECT/$OPS/ingest.conf\n"), std::string::npos);
  struct Case { std::vector<std::string> args; std::string err; } cases[] = {
      {{"-h"}, usage},
      {{"-F", "rtscts"}, "Unknown flow control: rtscts\n" + usage},
      {{"-x"}, me + ": invalid option -- 'x'\n" + usage},
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
