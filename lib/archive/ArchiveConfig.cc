#include "archive/ArchiveConfig.h"

#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "archive/ArchiveNaming.h"
#include "base/Exception.h"
#include "site/RecordReader.h"
#include "site/heron_fopen.h"

namespace {
std::string expand(const char* name) {
  std::unique_ptr<char, void (*)(void*)> full(heron_expand_name(name), free);
  if (!full) throw std::bad_alloc();
  return full.get();
}
}  // namespace

ArchiveConfig::ArchiveConfig(const char* file) {
  RecordReader in(file);
  _file = in.fileName();
  std::string directory = "$HERON/projects/$PROJECT/raw_data";
  std::vector<RecordValue> r;
  while (in.next(r)) {
    if (!r[0].isWord) in.fail("a record starts with a keyword");
    if (r[0].word == "directory") {
      if (r.size() != 2 || !r[1].isWord) in.fail("expected directory <path> ;");
      directory = r[1].word;
    } else if (r[0].word == "archive") {
      if (r.size() != 4 || !r[1].isWord || !r[2].isWord || r[3].isWord)
        in.fail("expected archive <module> <file-name pattern> <seconds per file> ;");
      if (!(r[3].number > 0)) in.fail("seconds per file must be positive");
      if (!_archives.emplace(r[1].word, Archive{r[2].word, r[3].number}).second)
        in.fail("module " + r[1].word + " given twice");
    } else {
      in.fail("unknown record " + r[0].word);
    }
  }
  const char* env = getenv("RAWDATADIR");
  _directory = expand(env ? env : directory.c_str());
}

std::vector<std::string> ArchiveConfig::GetArchiveFileNames(const char* module, double start, double end,
                                                            std::vector<double>& startTimes) const {
  const auto a = _archives.find(module);
  if (a == _archives.end()) throw BadConfigurationException(std::string("module ") + module + " is not in " + _file);
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(_directory.c_str()), closedir);
  if (!dir) throw BadConfigurationException(oru::IOException(_directory.c_str(), "opendir", errno));
  std::vector<std::pair<double, std::string>> found;
  errno = 0;
  while (const dirent* d = readdir(dir.get())) {
    heron::NamedStart named;
    struct stat st;
    const std::string path = _directory + "/" + d->d_name;
    if (heron::startInName(d->d_name, a->second.pattern.c_str(), &named) && named.time() < end &&
        named.time() + a->second.period > start && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode))
      found.emplace_back(named.time(), path);
    errno = 0;
  }
  if (errno != 0) throw BadConfigurationException(oru::IOException(_directory.c_str(), "readdir", errno));
  std::sort(found.begin(), found.end());
  std::vector<std::string> names;
  startTimes.clear();
  for (auto& f : found) {
    startTimes.push_back(f.first);
    names.push_back(std::move(f.second));
  }
  return names;
}
