#include "SiteCheck.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "base/Exception.h"
#include "archive/ArchiveConfig.h"
#include "calconf/HeronDataIds.h"
#include "calconf/Lag.h"
#include "calconf/SidList.h"
#include "site/TernList.h"
#include "calib/cal_file.h"
#include "site/AllowList.h"
#include "site/IngestConfig.h"
#include "site/channels.h"
#include "site/heron_fopen.h"

namespace {

const char kOps[] = "$HERON/projects/$PROJECT/$OPS/";
const char kConfig[] = "$HERON/config/";

// A reader's exception as a fault of file: "<file>:<line>: <what>" is split
// into its line and text; any other text is a fault of the whole file.
SiteFault faultOf(const std::string& file, std::string text) {
  const size_t kind = text.find(": ");
  if (kind != std::string::npos && text.compare(0, kind, "BadConfigurationException") == 0)
    text.erase(0, kind + 2);
  if (text.compare(0, 13, "IOException: ") == 0) text.erase(0, 13);
  const std::string prefix = file + ":";
  if (text.compare(0, prefix.size() + 1, prefix + " ") == 0) return SiteFault{file, 0, text.substr(prefix.size() + 1)};
  if (text.compare(0, prefix.size(), prefix) == 0) {
    char* end;
    const long line = strtol(text.c_str() + prefix.size(), &end, 10);
    if (end != text.c_str() + prefix.size() && strncmp(end, ": ", 2) == 0)
      return SiteFault{file, static_cast<int>(line), end + 2};
  }
  return SiteFault{file, 0, text};
}

SiteFault faultOf(const std::string& file, const oru::Exception& e) { return faultOf(file, e.toString()); }

void checkKites(const std::string& path, SiteCheck* run) { TernList::check(path, &run->faults); }

void checkIngest(const std::string& path, SiteCheck* run) { IngestConfig::check(path, &run->faults); }

void checkChannels(const std::string& path, SiteCheck* run) { channel_list::check(path, &run->faults); }

// The sensors, with the lag files and calibration files they name: a
// calibration file is a text parameter ending in ".cal".
void checkPrep(const std::string& path, SiteCheck* run) {
  SidList sids(path.c_str());
  for (const auto& s : sids.sids) {
    if (!s->lag.lagFileName.empty()) run->lagFiles.insert(s->lag.lagFileName);
    for (size_t i = 0; i < s->calib_params.size(); ++i) {
      if (s->calib_param_types[i] != CAL_STRING) continue;
      const std::string text = static_cast<const char*>(s->calib_params[i]);
      if (text.size() > 4 && text.compare(text.size() - 4, 4, ".cal") == 0) run->calFiles.insert(text);
    }
  }
  for (const auto& p : sids.phases)
    if (!p->lag.lagFileName.empty()) run->lagFiles.insert(p->lag.lagFileName);
}

// The data ids, read against the sensors (against none when prep.config
// cannot be read: its own fault is reported already).
void checkDid(const std::string& path, SiteCheck* run) {
  std::unique_ptr<SidList> sids;
  try {
    sids.reset(new SidList((kOps + std::string("prep.config")).c_str()));
  } catch (const oru::Exception&) {
    sids.reset(new SidList("/dev/null"));
  }
  HeronDataIds ids(*sids, path.c_str());
  for (const auto& id : ids.all())
    if (id->phase != nullptr && !id->phase->lag.lagFileName.empty()) run->lagFiles.insert(id->phase->lag.lagFileName);
}

void checkArchive(const std::string& path, SiteCheck* run) {
  ArchiveConfig archives(path.c_str());
  const std::string fault = archiveDirectoryFault(archives.directory());
  if (!fault.empty()) run->faults.push_back(SiteFault{path, 0, fault});
}

// Who may call the ingest servers: a missing file is no fault (loopback
// alone), a line that does not parse is.
void checkAllow(const std::string& path, SiteCheck* run) {
  std::vector<std::string> faults;
  readAllowList(path, faults);
  for (const std::string& f : faults) run->faults.push_back(faultOf(path, f));
}

// The site's files; a new file kind is one more row here.
const struct {
  const char* name;
  const char* folder;
  void (*check)(const std::string& path, SiteCheck* run);
} kFiles[] = {
    {"kites_config", kConfig, checkKites},     {"ingest.conf", kOps, checkIngest},
    {"channel_config", kOps, checkChannels},   {"prep.config", kOps, checkPrep},
    {"did.config", kOps, checkDid},            {"archive_config", kOps, checkArchive},
    {"ingest.allow", kOps, checkAllow},
};

std::string expanded(const std::string& name) {
  std::unique_ptr<char, void (*)(void*)> e(heron_expand_name(name.c_str()), free);
  if (e == nullptr) throw oru::IOException(name.c_str(), "expand", ENOMEM);
  return e.get();
}

// A calibration file is found where the calibration looks: an absolute
// name as it is, a relative one in the project's cal_files, then in
// $HERON/cal_files.
void checkCalFile(const std::string& name, SiteCheck* run) {
  const std::string path = expanded(name);
  std::vector<std::string> places{path};
  if (path.empty() || path[0] != '/')
    places = {expanded("$HERON/projects/$PROJECT/cal_files/" + path), expanded("$HERON/cal_files/" + path)};
  FILE* fp = nullptr;
  for (const std::string& place : places)
    if (fp == nullptr && (fp = fopen(place.c_str(), "r")) != nullptr) places = {place};
  if (fp == nullptr) {
    const std::string why = oru::Exception::errnoToString(errno);
    run->faults.push_back(SiteFault{places.back(), 0, "calibration file " + name + ": " + why});
    return;
  }
  int line = 0;
  char what[200];
  if (check_cal_stream(fp, places[0].c_str(), &line, what, sizeof what) != 0)
    run->faults.push_back(SiteFault{places[0], line, what});
  fclose(fp);
}

}  // namespace

std::string archiveDirectoryFault(const std::string& dir) {
  struct stat st;
  std::string at = dir;
  while (stat(at.c_str(), &st) != 0) {
    if (errno != ENOENT) return "raw-data directory " + dir + ": " + at + ": " + oru::Exception::errnoToString(errno);
    const size_t slash = at.find_last_of('/');
    at = slash == std::string::npos ? "." : slash == 0 ? "/" : at.substr(0, slash);
  }
  const std::string what = at == dir ? "" : " cannot be made: " + at;
  if (!S_ISDIR(st.st_mode)) return "raw-data directory " + dir + what + ": " + oru::Exception::errnoToString(ENOTDIR);
  if (access(at.c_str(), W_OK | X_OK) != 0)
    return "raw-data directory " + dir + what + ": " + oru::Exception::errnoToString(errno);
  return "";
}

void SiteCheck::run() {
  for (const auto& f : kFiles) {
    const std::string path = expanded(std::string(f.folder) + f.name);
    ++files;
    try {
      f.check(path, this);
    } catch (const oru::Exception& e) {
      faults.push_back(faultOf(path, e));
    }
  }
  for (const std::string& name : lagFiles) {
    ++files;
    Lag::check(name, &faults);
  }
  for (const std::string& name : calFiles) {
    ++files;
    checkCalFile(name, this);
  }
}
