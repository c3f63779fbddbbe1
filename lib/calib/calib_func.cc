#include "calib/calib_func.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/logit.h"
#include "calib/conversions.h"
#include "base/fatal.h"

// Each registry row becomes its two entries: the conversion, then its init
// function, each checked against its own type before it is stored under the
// neutral one, so a function of the wrong signature does not compile.
#define CALIB_ENTRIES(name)                                                              \
  {#name, reinterpret_cast<calib_any_t>(static_cast<calib_func_t>(&name))},              \
  {#name "_init", reinterpret_cast<calib_any_t>(static_cast<calib_init_t>(&name##_init))},

// Names of functions this library does not provide are absent, so looking
// them up finds nothing.
extern "C" const calib_entry function_list[] = {
    HERON_CALIB_CONVERSIONS(CALIB_ENTRIES)
    {nullptr, nullptr},
};

#undef CALIB_ENTRIES

namespace {

[[noreturn]] void fail_alloc() {
  logit(LOG_ERR, "calib_func.c: %m");
  exit_status_1();
}

char* copy_text(const char* s) {
  char* c = strdup(s ? s : "");
  if (!c) fail_alloc();
  return c;
}

}  // namespace

extern "C" calib_func_t calib_function(const char* name) {
  if (!name) return nullptr;
  for (const calib_entry* e = function_list; e->name; ++e)
    if (strcmp(e->name, name) == 0) return reinterpret_cast<calib_func_t>(e->func);
  return nullptr;
}

extern "C" calib_init_t calib_as_init(calib_func_t f) {
  return reinterpret_cast<calib_init_t>(reinterpret_cast<calib_any_t>(f));
}

extern "C" calib_init_t init_function(const char* name) {
  if (!name) return nullptr;
  size_t len = strlen(name);
  char* full = static_cast<char*>(malloc(len + sizeof "_init"));
  if (!full) {
    fputs("unable to allocate memory in init_function()\n", stdout);
    exit_status_1();
  }
  memcpy(full, name, len);
  memcpy(full + len, "_init", sizeof "_init");
  calib_func_t f = calib_function(full);
  free(full);
  return f ? calib_as_init(f) : nullptr;
}

extern "C" CalibInfo* AllocCalibInfo(int nout, const char* version) {
  if (nout < 0) nout = 0;
  CalibInfo* info = static_cast<CalibInfo*>(malloc(sizeof(CalibInfo)));
  if (!info) fail_alloc();
  // One slot even for nout 0 so that the array is never a zero-size block.
  info->units = static_cast<char**>(calloc(nout > 0 ? nout : 1, sizeof(char*)));
  if (!info->units) fail_alloc();
  info->version = copy_text(version);
  info->paramString = nullptr;
  info->iout = 0;
  info->nout = nout;
  return info;
}

extern "C" void FreeCalibInfo(CalibInfo* info) {
  if (!info) return;
  for (int i = 0; i < info->iout; ++i) free(info->units[i]);
  free(info->units);
  free(info->version);
  free(info->paramString);
  free(info);
}

extern "C" void CalibInfoAppendUnits(CalibInfo* info, const char* units) {
  if (info->iout >= info->nout) return;
  info->units[info->iout++] = copy_text(units);
}

extern "C" void CalibInfoSetUnits(CalibInfo* info, int n, ...) {
  va_list ap;
  va_start(ap, n);
  for (int i = 0; i < n; ++i) {
    const char* u = va_arg(ap, const char*);
    if (i < info->nout) CalibInfoAppendUnits(info, u);
  }
  va_end(ap);
}

extern "C" void CalibInfoSetParamString(CalibInfo* info, const char* format, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, format);
  vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  char* copy = copy_text(buf);
  free(info->paramString);
  info->paramString = copy;
}
