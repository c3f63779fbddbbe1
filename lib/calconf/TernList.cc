#include "calconf/TernList.h"

#include <stdio.h>
#include <string.h>

#include "base/Exception.h"
#include "site/heron_fopen.h"

std::unique_ptr<TernList::Entry> TernList::_head;
int TernList::_nterns = 0;

void TernList::initialize() {
  if (_head) return;
  std::string path = "$HERON/config/kites_config";
  ConfigFile opened = openConfigFile(path);
  FILE* fp = opened.get();
  int largest = -1;
  char word[100];
  while (fscanf(fp, "%99s", word) == 1) {
    char name[50];
    int number;
    if (strcmp(word, "kites_number") == 0 && fscanf(fp, "%49s %d", name, &number) == 2) {
      _head.reset(new Entry{name, number, std::move(_head)});
      if (number > largest) largest = number;
    }
    if (fscanf(fp, "%*[^\n]") == EOF) break;
  }
  _nterns = largest + 1;
}

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
