#include "site/heron_fopen.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "base/Exception.h"
#include "base/logit.h"

namespace {
std::string expand(const char* name) {
  std::string result;
  if (name[0] == '/') result = "/";
  const char* p = name;
  while (*p) {
    while (*p == '/') ++p;
    if (!*p) break;
    const char* end = strchr(p, '/');
    if (!end) end = p + strlen(p);
    std::string comp(p, end);
    const char* value = comp[0] == '$' ? getenv(comp.c_str() + 1) : nullptr;
    result += value ? std::string(value) : comp;
    result += '/';
    p = end;
  }
  if (!result.empty()) result.pop_back();
  return result;
}

char* dupOrNull(const std::string& s) {
  char* out = static_cast<char*>(malloc(s.size() + 1));
  if (out) memcpy(out, s.c_str(), s.size() + 1);
  return out;
}
}  // namespace

extern "C" char* heron_expand_name(const char* name) {
  try {
    return dupOrNull(expand(name));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

extern "C" FILE* heron_fopen(const char* name, const char* mode) {
  char* path = heron_expand_name(name);
  if (!path) return nullptr;
  FILE* fp = fopen(path, mode);
  if (!fp) logit(LOG_ERR, "%s: %m", path);
  free(path);
  return fp;
}

extern "C" FILE* heron_cal_fopen(const char* name, const char* mode) {
  char* expanded = heron_expand_name(name);
  if (!expanded) return nullptr;
  std::string path(expanded);
  free(expanded);
  if (path.empty() || path[0] != '/') {
    const char* heron = getenv("HERON");
    if (!heron) {
      logit(LOG_ERR, "HERON environment variable not defined.");
      return nullptr;
    }
    const char* project = getenv("PROJECT");
    if (!project) {
      logit(LOG_ERR, "PROJECT environment variable not defined.");
      return nullptr;
    }
    std::string projectPath = std::string(heron) + "/projects/" + project + "/cal_files/" + path;
    if (FILE* fp = fopen(projectPath.c_str(), mode)) return fp;
    path = std::string(heron) + "/cal_files/" + path;
  }
  FILE* fp = fopen(path.c_str(), mode);
  if (!fp) logit(LOG_ERR, "%s: %m", path.c_str());
  return fp;
}

FILE* heronFopen(std::string& fname, const char* access) {
  fname = expand(fname.c_str());
  FILE* fp = fopen(fname.c_str(), access);
  if (!fp) throw oru::IOException(fname.c_str(), "open", errno);
  return fp;
}

ConfigFile openConfigFile(std::string& fname) {
  try {
    return ConfigFile(heronFopen(fname, "r"), fclose);
  } catch (const oru::IOException& e) {
    throw BadConfigurationException(e);
  }
}
