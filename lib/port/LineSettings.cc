#include "port/LineSettings.h"

namespace {
struct BaudRow {
  speed_t code;
  int rate;
};

// Scanned in order.  The last row pairs the 230400 code with 23040: sites ask
// for "23040" to get 230400 baud, and that request is kept working.
const BaudRow kBaudTable[19] = {
    {B0, 0},         {B50, 50},       {B75, 75},         {B110, 110},       {B134, 134},
    {B150, 150},     {B200, 200},     {B300, 300},       {B600, 600},       {B1200, 1200},
    {B1800, 1800},   {B2400, 2400},   {B4800, 4800},     {B9600, 9600},     {B19200, 19200},
    {B38400, 38400}, {B57600, 57600}, {B115200, 115200}, {B230400, 23040},
};
}  // namespace

bool knownFlowControl(const std::string& word) {
  return word == "none" || word == "RTS" || word == "CTS" || word == "RTSCTS";
}

bool baudCode(int baud, speed_t* code) {
  for (const BaudRow& row : kBaudTable)
    if (row.rate == baud) {
      *code = row.code;
      return row.code != B50;
    }
  return false;
}

bool knownParity(const std::string& word) { return word == "none" || word == "even" || word == "odd"; }

std::vector<std::string> lineSettingsFaults(const LineSettings& line, const std::string& localWord) {
  std::vector<std::string> faults;
  speed_t code;
  if (!baudCode(line.baud, &code) || code == B0)
    faults.push_back("baud " + std::to_string(line.baud) + ": 75 to 115200 in the usual steps, or 23040");
  if (!knownParity(line.parity)) faults.push_back("parity \"" + line.parity + "\": none, even or odd");
  if (line.databits < 5 || line.databits > 8)
    faults.push_back("data bits " + std::to_string(line.databits) + ": 5, 6, 7 or 8");
  if (line.stopbits != 1 && line.stopbits != 2)
    faults.push_back("stop bits " + std::to_string(line.stopbits) + ": 1 or 2");
  if (!knownFlowControl(line.flowcontrol))
    faults.push_back("flow control \"" + line.flowcontrol + "\": none, RTS, CTS or RTSCTS");
  if (localWord != "local" && localWord != "LOCAL" && localWord != "modem" && localWord != "MODEM")
    faults.push_back("\"" + localWord + "\": local or modem");
  return faults;
}
