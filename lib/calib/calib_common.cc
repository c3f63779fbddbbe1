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
