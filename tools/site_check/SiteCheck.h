// The checks of site_check: every site file that serial_ingest, Ingest and
// the calibration read, each by the library's own reader, with every fault
// collected as "<file>:<line>: <what>" rather than the first one ending the
// run.  The site is $HERON/projects/$PROJECT/$OPS, the module list
// $HERON/config/kites_config.
//
// The files are a table of {name, folder, checker}.  The table's files must
// all exist; the files they name (lag files, calibration files) are checked
// after them, each once.  A file read by a grammar (channel_config,
// prep.config, did.config, archive_config, calibration files) stops at its
// first syntax error, so it gives at most one syntax fault.
#ifndef HERON_TOOLS_SITE_CHECK_SITECHECK_H
#define HERON_TOOLS_SITE_CHECK_SITECHECK_H

#include <set>
#include <string>

#include "site/SiteFault.h"

struct SiteCheck {
  SiteFaults faults;
  int files = 0;                  // files read
  std::set<std::string> lagFiles;  // named by prep.config and did.config
  std::set<std::string> calFiles;  // named by prep.config's calibrate records

  // Checks the whole site.
  void run();
};

// Checks that the raw-data directory dir exists and is writable, or, when
// it does not exist, that its nearest existing ancestor is a writable
// directory (so the ingest server can make it); "" or the fault.
std::string archiveDirectoryFault(const std::string& dir);

#endif
