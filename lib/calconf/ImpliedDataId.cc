#include "calconf/ImpliedDataId.h"

#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "base/logit.h"

const char* const ImpliedDataId::_BRE = "^volts\\.\\([[:digit:]]\\{1,3\\}\\)\\.\\([[:alpha:]][[:alnum:]]*\\)";

namespace {
void report(int err, const regex_t* re) {
  char text[64];
  regerror(err, re, text, sizeof text);
  logit(LOG_ERR, "%s: %s", text, ImpliedDataId::_BRE);
}

// The compiled expression, compiled on first use; null when it failed.
const regex_t* expression() {
  static regex_t re;
  static const bool ok = [] {
    const int err = regcomp(&re, ImpliedDataId::_BRE, 0);
    if (err != 0) report(err, &re);
    return err == 0;
  }();
  return ok ? &re : nullptr;
}

char* copy(const char* from, size_t n) {
  char* s = static_cast<char*>(malloc(n + 1));
  if (!s) throw std::bad_alloc();
  memcpy(s, from, n);
  s[n] = '\0';
  return s;
}
}  // namespace

ImpliedDataId::ImpliedDataId(const char* name) : _channel(-1), _ternName(nullptr), _channelName(nullptr) {
  const regex_t* re = expression();
  if (!re) return;
  regmatch_t m[3];
  const int err = regexec(re, name, 3, m, 0);
  if (err == REG_NOMATCH) return;
  if (err != 0) {
    report(err, re);
    return;
  }
  _channelName = copy(name + m[1].rm_so, static_cast<size_t>(m[1].rm_eo - m[1].rm_so));
  _ternName = copy(name + m[2].rm_so, strlen(name + m[2].rm_so));
  _channel = atoi(_channelName);
}

ImpliedDataId::~ImpliedDataId() {
  free(_ternName);
  free(_channelName);
}
