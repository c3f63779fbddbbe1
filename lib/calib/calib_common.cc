#include "calib/calib_common.h"
#include "base/fatal.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

void calib_init_fail(const char* module, const char* format, ...) {
  fprintf(stderr, "Error: %s calibration function error\n", module);
  va_list ap;
  va_start(ap, format);
  vfprintf(stderr, format, ap);
  va_end(ap);
  fflush(stderr);
  exit_status_1();
}

void calib_alloc_fail(const char* what) {
  perror(what);
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
