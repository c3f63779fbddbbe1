// A fault found in a site file: the file, the line (0 for the file as a
// whole) and what is wrong.  Readers that stop at their first fault throw
// it as "<file>:<line>: <message>"; their checking entry points, which the
// site checker calls, add every fault they find to a list and go on.
#ifndef HERON_SITE_SITEFAULT_H
#define HERON_SITE_SITEFAULT_H

#include <string>
#include <vector>

struct SiteFault {
  std::string file;
  int line;
  std::string message;
};

using SiteFaults = std::vector<SiteFault>;

#endif
