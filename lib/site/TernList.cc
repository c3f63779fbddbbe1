#include "site/TernList.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <sstream>

#include "base/Exception.h"
#include "site/heron_fopen.h"

std::unique_ptr<TernList::Entry> TernList::_head;
int TernList::_nterns = 0;

namespace {
// The fault of one line's words after "kites_number", or "" with name and
// number set.
std::string readEntry(std::istringstream& words, std::string* name, int* number) {
  std::string text;
  if (!(words >> *name >> text)) return "expected \"kites_number NAME NUMBER\"";
  char* end;
  errno = 0;
  const long value = strtol(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE || value < 0 || value > TernList::kMaxModule)
    return "module number \"" + text + "\" is not 0 to " + std::to_string(TernList::kMaxModule);
  *number = static_cast<int>(value);
  return "";
}
}  // namespace

void TernList::read(const std::string& file, bool collect, SiteFaults* faults) {
  std::string path = file;
  ConfigFile opened = openConfigFile(path);
  FILE* fp = opened.get();
  int largest = -1, line = 0;
  char* text = nullptr;
  size_t size = 0;
  std::unique_ptr<char*, void (*)(char**)> release(&text, [](char** p) { free(*p); });
  while (getline(&text, &size, fp) >= 0) {
    ++line;
    std::istringstream words(text);
    std::string first, name;
    int number = 0;
    if (!(words >> first) || first != "kites_number") continue;
    const std::string fault = readEntry(words, &name, &number);
    if (!fault.empty()) {
      if (!collect) throw BadConfigurationException(path + ":" + std::to_string(line) + ": " + fault);
      faults->push_back(SiteFault{path, line, fault});
    } else if (!collect) {
      _head.reset(new Entry{name, number, std::move(_head)});
      if (number > largest) largest = number;
    }
  }
  if (ferror(fp)) throw BadConfigurationException(oru::IOException(path.c_str(), "read", errno));
  if (!collect) _nterns = largest + 1;
}

void TernList::initialize() {
  if (_head) return;
  try {
    read("$HERON/config/kites_config", false, nullptr);
  } catch (...) {
    clear();
    throw;
  }
}

void TernList::check(const std::string& path, SiteFaults* faults) { read(path, true, faults); }
const TernList::Entry& TernList::TernInfo(const char* name) {
  initialize();
  for (const Entry* e = _head.get(); e; e = e->next.get())
    if (e->name == name) return *e;
  throw BadConfigurationException(std::string("tern \"") + name + "\" is not found in $HERON/config/kites_config");
}

const TernList::Entry& TernList::TernInfo(int number) {
  initialize();
  for (const Entry* e = _head.get(); e; e = e->next.get())
    if (e->number == number) return *e;
  throw BadConfigurationException("tern #" + std::to_string(number) + " is not found in $HERON/config/kites_config");
}

int TernList::TernIndex(const char* name) {
  initialize();
  for (const Entry* e = _head.get(); e; e = e->next.get())
    if (e->name == name) return e->number;
  return -1;
}

void TernList::clear() {
  while (_head) _head = std::move(_head->next);
  _nterns = 0;
}
