#include "calib/calib_common.h"
#include "base/fatal.h"
#include "base/logit.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

void calib_init_fail(const char* module, const char* format, ...) {
  logit(LOG_ERR, "Error: %s calibration function error", module);
  va_list ap;
  va_start(ap, format);
  char* line = nullptr;
  const bool made = vasprintf(&line, format, ap) >= 0;
  va_end(ap);
  std::string text = format;  // should the text not be made, the format still says what is wrong
  if (made) {
    text = line;
    free(line);
  }
  if (!text.empty() && text.back() == '\n') text.pop_back();  // the report's own line end
  heron::logText(LOG_ERR, text);
  exit_status_1();
}

void calib_alloc_fail(const char* what) {
  logit(LOG_ERR, "%s: %m", what);
  exit_status_1();
}

void calib_check_nparam(const char* module, int nparam, int min, int max) {
  if (nparam >= min && nparam <= max) return;
  if (min == max) calib_init_fail(module, "Invalid number of parameters, should be %d\n", min);
  calib_init_fail(module, "Invalid number of parameters (%d), should be %d %s %d\n", nparam, min,
                  max == min + 1 ? "or" : "to", max);
}

CalibInfo* calib_info(const char* version, int nout, std::initializer_list<const char*> units) {
  CalibInfo* info = AllocCalibInfo(nout, version);
  for (const char* u : units) CalibInfoAppendUnits(info, u);
  return info;
}
