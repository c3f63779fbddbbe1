#include "site/IngestConfig.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/Exception.h"
#include "site/heron_fopen.h"
#include "base/logit.h"

IngestConfigEntry::IngestConfigEntry(const char* sn, const char* is, const char* pn, int bd,
                                     const char* pty, int db, int sb, const char* fc, const char* l)
    : stationName(sn),
      ingestServer(is),
      portName(pn),
      type(SERIALPORT),
      baud(bd),
      parity(pty),
      databits(db),
      stopbits(sb),
      flowcontrol(fc),
      local(l) {}

IngestConfigEntry::IngestConfigEntry(const char* sn, const char* is, const char* pn)
    : stationName(sn), ingestServer(is), portName(pn), type(SOCKET), baud(0), databits(0), stopbits(0) {}

LineSettings IngestConfigEntry::lineSettings() const {
  return LineSettings{baud, parity, databits, stopbits, flowcontrol, local == "local" || local == "LOCAL"};
}

namespace {
// The table is a stream of words read the way formatted input reads them: a
// word is any run of non-blank characters (of any length), and a number is
// an optional sign and digits, ending at the first other character, which
// stays in the stream.
class WordReader {
 public:
  WordReader(FILE* fp, const std::string& path) : fp_(fp), path_(path) {}

  // False at end of input (nothing read).
  bool word(std::string& out) {
    int c = skipBlanks();
    if (c == EOF) return false;
    out.clear();
    while (c != EOF && !isspace(c)) {
      out += static_cast<char>(c);
      c = get();
    }
    unget(c);
    return true;
  }

  // False when no number stands next (the offending character stays).
  bool number(int& out) {
    int c = skipBlanks();
    if (c == EOF) return false;
    std::string digits;
    if (c == '+' || c == '-') {
      digits += static_cast<char>(c);
      c = get();
    }
    while (c != EOF && isdigit(c)) {
      digits += static_cast<char>(c);
      c = get();
    }
    unget(c);
    if (digits.empty() || !isdigit(static_cast<unsigned char>(digits.back()))) return false;
    errno = 0;
    long v = strtol(digits.c_str(), nullptr, 10);
    if (errno == ERANGE || v > INT_MAX || v < INT_MIN) v = v < 0 ? INT_MIN : INT_MAX;
    out = static_cast<int>(v);
    return true;
  }

  // Drops everything up to, not including, the next line break.
  void skipLine() {
    int c;
    while ((c = get()) != EOF && c != '\n') {
    }
    unget(c);
  }

  // The line of the last character read (1 for the first line).
  int line() const { return line_; }

 private:
  int get() {
    int c = getc(fp_);
    if (c == EOF && ferror(fp_)) throw BadConfigurationException(oru::IOException(path_.c_str(), "read", errno));
    if (last_ == '\n') ++line_;
    last_ = c;
    return c;
  }
  void unget(int c) {
    if (c == EOF) return;
    ungetc(c, fp_);
    if (c == '\n') last_ = 0;
  }
  int skipBlanks() {
    int c;
    while ((c = get()) != EOF && isspace(c)) {
    }
    return c;
  }
  FILE* fp_;
  const std::string& path_;
  int line_ = 1;
  int last_ = 0;  // the last character read, while it is not given back
};

// The six line settings of a serial record; returns how many were read.
int readSettings(WordReader& in, int& baud, std::string& parity, int& databits, int& stopbits,
                 std::string& flow, std::string& local) {
  if (!in.number(baud)) return 0;
  if (!in.word(parity)) return 1;
  if (!in.number(databits)) return 2;
  if (!in.number(stopbits)) return 3;
  if (!in.word(flow)) return 4;
  if (!in.word(local)) return 5;
  return 6;
}
}  // namespace

namespace {
const char* const kSettingNames[6] = {"baud", "parity", "data bits", "stop bits", "flow control", "local or modem"};

// Reads the table into stns.  With faults null a malformed serial record
// is logged ("bad line in <file>: i = ") and skipped; with faults, each
// fault of every record is added there with its line and nothing is logged.
void readTable(const std::string& path, FILE* fp, std::vector<IngestConfigEntry>* stns, SiteFaults* faults) {
  WordReader in(fp, path);
  std::string station, server, port, lower, parity, flow, local, bad;
  auto fault = [&](int line, const std::string& what) { faults->push_back(SiteFault{path, line, what}); };
  while (in.word(station)) {
    const int line = in.line();
    if (station[0] == '#') {
      in.skipLine();
      continue;
    }
    if (!in.word(server) || !in.word(port)) {
      if (faults == nullptr) logit(LOG_ERR, "bad line in %s: i = ", path.c_str());  // the table ends inside a record
      else fault(line, "the table ends inside the record of " + station);
      break;
    }
    lower = port;
    for (char& ch : lower) ch = static_cast<char>(tolower(static_cast<unsigned char>(ch)));
    if (lower == "socket") {
      stns->emplace_back(station.c_str(), server.c_str(), port.c_str());
      in.skipLine();
      continue;
    }
    int baud = 0, databits = 0, stopbits = 0;
    int i = readSettings(in, baud, parity, databits, stopbits, flow, local);
    if (i < 6 && faults == nullptr) {
      // The count is deliberately not part of the message.
      logit(LOG_ERR, "bad line in %s: i = ", path.c_str());
    } else if (i < 6) {
      fault(in.line(), in.word(bad) ? std::string(kSettingNames[i]) + " \"" + bad + "\" is not a number"
                                     : "missing " + std::string(kSettingNames[i]) + " at the end of the table");
    } else {
      stns->emplace_back(station.c_str(), server.c_str(), port.c_str(), baud, parity.c_str(), databits, stopbits,
                         flow.c_str(), local.c_str());
      if (faults != nullptr)
        for (const std::string& what : lineSettingsFaults(stns->back().lineSettings(), local)) fault(line, what);
    }
    in.skipLine();
  }
}
}  // namespace

IngestConfig::IngestConfig(const char* configFile) {
  std::string path(configFile);
  ConfigFile file = openConfigFile(path);
  readTable(path, file.get(), &stns, nullptr);
}

void IngestConfig::check(const std::string& file, SiteFaults* faults) {
  std::string path(file);
  ConfigFile opened = openConfigFile(path);
  std::vector<IngestConfigEntry> stns;
  readTable(path, opened.get(), &stns, faults);
}

IngestConfig::~IngestConfig() = default;

std::string ingestServer(const char* stnName) {
  std::string result;
  IngestConfig cfg("$HERON/projects/$PROJECT/$OPS/ingest.conf");
  for (const IngestConfigEntry& e : cfg.stns) {
    if (e.stationName == stnName) {
      result = e.ingestServer;
      break;
    }
  }
  if (result.empty()) {
    const char* env = getenv("INGEST_SERVER");
    result = env ? env : "heron";
  }
  return result;
}
