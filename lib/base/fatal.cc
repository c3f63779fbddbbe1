#include "base/fatal.h"

#include <stdio.h>
#include <stdlib.h>

void exit_status_1(void) {
  // exit() flushes too; flushing first keeps the order of standard output
  // and standard error when both go to one file.
  fflush(stdout);
  fflush(stderr);
  exit(1);
}
