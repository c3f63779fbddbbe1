// site_check: checks every file of a site before the station starts or
// reloads, and prints one line per fault, "<file>:<line>: <what>" (the line
// left out for a fault of the whole file).  Exit status 0 when the site is
// clean, 1 on any fault, 2 on a bad command line.  Quiet when clean unless
// -v.  See site_check.1.
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>

#include "SiteCheck.h"
#include "base/Exception.h"

namespace {

const char kUsage[] =
    "Usage: site_check [-v]\n"
    "Checks the site's files ($HERON/config/kites_config and, beneath\n"
    "$HERON/projects/$PROJECT/$OPS, ingest.conf, channel_config, prep.config,\n"
    "did.config, archive_config and the lag and calibration files they name)\n"
    "and prints one line per fault as FILE:LINE: MESSAGE.  Exit status 1 on\n"
    "any fault.\n"
    "  -v             on success, say how many files were read\n"
    "  -h, --help     this text\n"
    "  --version      the version\n";

}  // namespace

int main(int argc, char** argv) {
  static const struct option kLong[] = {
      {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}};
  bool verbose = false;
  for (int c; (c = getopt_long(argc, argv, "hv", kLong, nullptr)) != -1;) {
    if (c == 'h') {
      fputs(kUsage, stdout);
      return 0;
    }
    if (c == 'V') {
      printf("site_check (%s) %s\n", HERON_PACKAGE, HERON_VERSION);
      return 0;
    }
    if (c != 'v') {
      fputs(kUsage, stderr);
      return 2;
    }
    verbose = true;
  }
  if (optind != argc) {
    fputs(kUsage, stderr);
    return 2;
  }
  for (const char* name : {"HERON", "PROJECT", "OPS"})
    if (getenv(name) == nullptr || *getenv(name) == '\0') {
      fprintf(stderr, "site_check: %s is not set: the site is $HERON/projects/$PROJECT/$OPS\n", name);
      return 1;
    }
  SiteCheck check;
  try {
    check.run();
  } catch (const oru::Exception& e) {
    fprintf(stderr, "site_check: %s\n", e.toString().c_str());
    return 1;
  }
  for (const SiteFault& f : check.faults) {
    if (f.line > 0)
      printf("%s:%d: %s\n", f.file.c_str(), f.line, f.message.c_str());
    else
      printf("%s: %s\n", f.file.c_str(), f.message.c_str());
  }
  if (fflush(stdout) != 0 || ferror(stdout)) {
    perror("site_check: standard output");
    return 1;
  }
  if (!check.faults.empty()) return 1;
  if (verbose) printf("site_check: %d files, no faults\n", check.files);
  return 0;
}
