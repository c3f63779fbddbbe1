// How archive files are named: a strftime/strptime pattern of the file's
// start time (UTC), e.g. tern1_%Y%m%d_%H%M%S.raw, and the one rule that
// reads a start time back from a name, used by everything that dates a
// file (the archive's file list and raw_dump).  The pattern and the span of
// data per file of each module are in archive_config (ArchiveConfig.h).
#ifndef HERON_ARCHIVE_ARCHIVENAMING_H
#define HERON_ARCHIVE_ARCHIVENAMING_H

#include <string>

namespace heron {

// The start a name carries: the UTC midnight of its day, and the seconds
// into that day, -1 when the name tells only the day.
struct NamedStart {
  double day = 0;
  long secs = -1;
  double time() const { return secs < 0 ? day : day + static_cast<double>(secs); }
};

// The start time that a file's name (the part after its last "/") carries.
// With a pattern: the whole name read by that strptime pattern.  Without
// one (nullptr, for files of any archive): the first run of exactly eight
// digits that reads as a date YYYYMMDD of 1970 or later, with the time of
// day of an _HHMMSS right after it.  False when the name carries none.
bool startInName(const char* path, const char* pattern, NamedStart* start);

// The name by pattern of a file that starts at t (whole seconds, UTC);
// false when the pattern makes an empty or overlong name.
bool nameOfStart(const std::string& pattern, double t, std::string* name);

// The pattern names files inside the archive's directory: it is relative
// and has no ".." component.
bool staysInside(const std::string& pattern);

}  // namespace heron

#endif
