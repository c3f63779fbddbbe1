#include "port/LineSettings.h"

bool knownFlowControl(const std::string& word) {
  return word == "none" || word == "RTS" || word == "CTS" || word == "RTSCTS";
}
