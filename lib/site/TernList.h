// The site's acquisition modules: name and number of each, from
// "$HERON/config/kites_config".  The list is read once per process, on the
// first look-up (or initialize()), and kept until clear().
//
// kites_config: a line whose first word is "kites_number" names a module and
// its number ("kites_number tern1 1"; later words are ignored); every other
// line is skipped whole.  A module number is 0 to kMaxModule: the module's
// ingest program, 0x20000010 plus its number, stays among the transient
// program numbers, and the calibration's per-module tables (as many rows as
// the largest number plus one) stay a few tens of megabytes.
#ifndef HERON_SITE_TERNLIST_H
#define HERON_SITE_TERNLIST_H

#include <memory>
#include <string>

#include "site/SiteFault.h"

class TernList {
 public:
  struct Entry {
    std::string name;
    int number;
    std::unique_ptr<Entry> next;
  };

  static const int kMaxModule = (1 << 20) - 1;

  // Reads kites_config unless the list exists already.  Throws
  // BadConfigurationException when the file cannot be opened or read, and
  // "<file>:<line>: <what>" for a kites_number line without a name and a
  // number in range.
  static void initialize();

  // Reads the kites_config at path (a name with "$" components) and adds
  // every fault of it to faults; the list is not touched.
  static void check(const std::string& path, SiteFaults* faults);

  // The module of that name or number (reading the list first if needed).
  // Throws BadConfigurationException
  //   tern "<name>" is not found in $HERON/config/kites_config
  //   tern #<number> is not found in $HERON/config/kites_config
  static const Entry& TernInfo(const char* name);
  static const Entry& TernInfo(int number);

  // The number of the named module, or -1 when there is none.
  static int TernIndex(const char* name);

  // The largest module number read plus 1 (0 before reading or when empty).
  static int nterns() { return _nterns; }

  // Drops the list; the next look-up reads the file again.
  static void clear();

 private:
  static void read(const std::string& path, bool collect, SiteFaults* faults);

  static std::unique_ptr<Entry> _head;  // last read first
  static int _nterns;
};

#endif
