#include "site/AllowList.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <memory>

#include "base/Exception.h"
#include "site/heron_fopen.h"

bool AllowList::allows(uint32_t address) const {
  for (const Net& n : nets)
    if ((address & n.mask) == n.address) return true;
  return false;
}

namespace {

// One line's word as a network; "" on success, else what is wrong with it.
std::string parseNet(const std::string& word, AllowList::Net& net) {
  const size_t slash = word.find('/');
  const std::string host = word.substr(0, slash);
  struct in_addr a;
  if (inet_pton(AF_INET, host.c_str(), &a) != 1) return "'" + host + "' is not an IPv4 address (a.b.c.d)";
  unsigned bits = 32;
  if (slash != std::string::npos) {
    const std::string len = word.substr(slash + 1);
    char* end = nullptr;
    const unsigned long v = strtoul(len.c_str(), &end, 10);
    if (len.empty() || len.size() > 2 || *end != '\0' || !isdigit(static_cast<unsigned char>(len[0])) || v > 32)
      return "'" + len + "' is not a prefix length from 0 to 32";
    bits = static_cast<unsigned>(v);
  }
  net.mask = bits == 0 ? 0 : ~0u << (32 - bits);
  net.address = ntohl(a.s_addr);
  if (net.address & ~net.mask)
    return "'" + word + "' has bits set beyond its prefix length; did you mean the network " +
           inet_ntoa(in_addr{htonl(net.address & net.mask)}) + "/" + std::to_string(bits) + "?";
  return "";
}

}  // namespace

AllowList readAllowList(const std::string& name, std::vector<std::string>& faults) {
  AllowList list;
  std::unique_ptr<char, void (*)(void*)> path(heron_expand_name(name.c_str()), free);
  if (!path) {
    faults.push_back(name + ": out of memory");
    return list;
  }
  std::ifstream in(path.get());
  if (!in) {
    if (errno != ENOENT) faults.push_back(std::string(path.get()) + ": cannot read: " + strerror(errno));
    return list;
  }
  std::string line;
  for (int n = 1; std::getline(in, line); ++n) {
    line = line.substr(0, line.find('#'));
    const char* blank = " \t\r";
    const size_t b = line.find_first_not_of(blank);
    if (b == std::string::npos) continue;
    const size_t e = line.find_first_of(blank, b);
    const std::string where = std::string(path.get()) + ":" + std::to_string(n) + ": ";
    if (e != std::string::npos && line.find_first_not_of(blank, e) != std::string::npos) {
      faults.push_back(where + "one address or network per line");
      continue;
    }
    AllowList::Net net;
    const std::string fault = parseNet(line.substr(b, e == std::string::npos ? e : e - b), net);
    if (fault.empty()) list.nets.push_back(net);
    else faults.push_back(where + fault);
  }
  if (in.bad()) faults.push_back(std::string(path.get()) + ": read: " + strerror(errno));
  return list;
}

AllowList siteAllowList() {
  std::vector<std::string> faults;
  AllowList list = readAllowList(kAllowListFile, faults);
  if (faults.empty()) return list;
  std::string text;
  for (const std::string& f : faults) text += (text.empty() ? "" : "\n") + f;
  throw BadConfigurationException(text);
}
