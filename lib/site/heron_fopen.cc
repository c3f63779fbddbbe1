#include "site/heron_fopen.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

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

// The variables of name's "$" components that are not set, in order, each
// once.
std::vector<std::string> unsetVariables(const char* name) {
  std::vector<std::string> unset;
  for (const char* p = name; (p = strchr(p, '$')) != nullptr; ++p) {
    if (p != name && p[-1] != '/') continue;  // a "$" inside a component is no variable
    const std::string var(p + 1, strcspn(p + 1, "/"));
    if (!var.empty() && getenv(var.c_str()) == nullptr && std::find(unset.begin(), unset.end(), var) == unset.end())
      unset.push_back(var);
  }
  return unset;
}

// "A", "A and B", "A, B and C".
std::string listed(const std::vector<std::string>& words) {
  std::string text;
  for (size_t i = 0; i < words.size(); ++i)
    text += (i == 0 ? "" : i + 1 == words.size() ? " and " : ", ") + words[i];
  return text;
}

// What a user who has not set up the site environment must do, after a
// failed open of name: "; set HERON, PROJECT and OPS (OPS is not set)".
// Empty when every variable the name uses is set.
std::string environmentHint(const char* name) {
  const std::vector<std::string> unset = unsetVariables(name);
  if (unset.empty()) return "";
  std::vector<std::string> needed{"HERON", "PROJECT", "OPS"};
  for (const std::string& var : unset)
    if (std::find(needed.begin(), needed.end(), var) == needed.end()) needed.push_back(var);
  return "; set " + listed(needed) + " (" + listed(unset) + (unset.size() == 1 ? " is" : " are") + " not set)";
}

// A failed open whose text ends with the environment hint; the error
// number stays the system's.
class OpenFailed : public oru::IOException {
 public:
  OpenFailed(const std::string& path, int err, const std::string& hint)
      : IOException(path, "open", errnoToString(err) + hint) {
    error = err;
  }
};

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
  if (!fp) {
    const int err = errno;
    const std::string hint = environmentHint(name);
    errno = err;
    logit(LOG_ERR, "%s: %m%s", path, hint.c_str());
  }
  free(path);
  return fp;
}

extern "C" FILE* heron_cal_fopen(const char* name, const char* mode) {
  std::string path;
  return heronCalFopen(name, mode, &path);
}

FILE* heronCalFopen(const char* name, const char* mode, std::string* opened) {
  opened->clear();
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
    if (FILE* fp = fopen(projectPath.c_str(), mode)) {
      *opened = projectPath;
      return fp;
    }
    path = std::string(heron) + "/cal_files/" + path;
  }
  *opened = path;
  FILE* fp = fopen(path.c_str(), mode);
  if (!fp) logit(LOG_ERR, "%s: %m", path.c_str());
  return fp;
}

FILE* heronFopen(std::string& fname, const char* access) {
  const std::string name = fname;
  fname = expand(name.c_str());
  FILE* fp = fopen(fname.c_str(), access);
  if (!fp) {
    const int err = errno;
    throw OpenFailed(fname, err, environmentHint(name.c_str()));
  }
  return fp;
}

ConfigFile openConfigFile(std::string& fname) {
  try {
    return ConfigFile(heronFopen(fname, "r"), fclose);
  } catch (const oru::IOException& e) {
    throw BadConfigurationException(e);
  }
}
