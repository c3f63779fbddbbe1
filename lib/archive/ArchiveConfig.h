// Where each module's raw-data archive files lie and how they are named:
// the raw-data directory, and per module a file-name pattern holding the
// file's start time (read back by ArchiveNaming.h's one rule) and the time
// span one file covers.  The file syntax is described in
// docs/archive_config.md.
//
// Read whole at construction; every fault throws BadConfigurationException
// ("<file>:<line>: <what>", or the wrapped I/O error).
#ifndef HERON_ARCHIVE_ARCHIVECONFIG_H
#define HERON_ARCHIVE_ARCHIVECONFIG_H

#include <map>
#include <string>
#include <vector>

class ArchiveConfig {
 public:
  // The raw-data directory is RAWDATADIR when set, else the file's
  // "directory" record, else "$HERON/projects/$PROJECT/raw_data".
  explicit ArchiveConfig(const char* file = "$HERON/projects/$PROJECT/$OPS/archive_config");

  // The existing archive files of module that hold data of [start, end),
  // as whole paths in time order, and their start times in startTimes.
  // Throws BadConfigurationException for a module the file does not name
  // or a directory that cannot be read.
  std::vector<std::string> GetArchiveFileNames(const char* module, double start, double end,
                                               std::vector<double>& startTimes) const;

  // The file-name pattern and seconds per file of module's archive; false
  // when the file does not name module.
  bool archiveOf(const char* module, std::string& pattern, double& period) const {
    auto a = _archives.find(module);
    if (a == _archives.end()) return false;
    pattern = a->second.pattern;
    period = a->second.period;
    return true;
  }
  // The raw-data directory, expanded.
  const std::string& directory() const { return _directory; }

 private:
  struct Archive {
    std::string pattern;  // strftime/strptime form of a file name, e.g. tern1_%Y%m%d_%H%M%S.raw
    double period;        // seconds of data in one file
  };

  std::string _file;
  std::string _directory;
  std::map<std::string, Archive> _archives;
};

#endif
