// Who may call a station's ingest service: the file
// "$HERON/projects/$PROJECT/$OPS/ingest.allow", one IPv4 address
// ("192.168.4.7") or network ("192.168.4.0/24") per line; "#" starts a
// comment to the end of the line and blank lines are skipped.  Loopback
// (127.0.0.0/8) is always allowed, and is all that is allowed when the file
// does not exist.  readAllowList reports every fault as "file:line: message"
// so that a site checker can print them as they are; siteAllowList is the
// program's form, which refuses a list with any fault.
#ifndef HERON_SITE_ALLOWLIST_H
#define HERON_SITE_ALLOWLIST_H

#include <stdint.h>

#include <string>
#include <vector>

struct AllowList {
  struct Net {
    uint32_t address, mask;  // host order; address has no bits outside mask
  };
  std::vector<Net> nets{{0x7f000000u, 0xff000000u}};  // loopback

  bool allows(uint32_t address) const;  // host order
};

constexpr const char* kAllowListFile = "$HERON/projects/$PROJECT/$OPS/ingest.allow";

// Reads the allow-list `name` ($ components expanded).  Faults, including a
// file that exists but cannot be read, are appended to faults; the lines
// that parsed are kept.
AllowList readAllowList(const std::string& name, std::vector<std::string>& faults);

// readAllowList of kAllowListFile; throws BadConfigurationException carrying
// every fault, one per line, when there is any.
AllowList siteAllowList();

#endif
