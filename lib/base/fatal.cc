#include "base/fatal.h"

#include <stdio.h>
#include <stdlib.h>

namespace {
void exitWithStatus1() { exit(1); }
heron::Ending ending = exitWithStatus1;
}  // namespace

heron::Ending heron::setEnding(Ending next) {
  const Ending replaced = ending;
  ending = next != nullptr ? next : exitWithStatus1;
  return replaced;
}

void exit_status_1(void) {
  // exit() flushes too; flushing first keeps the order of standard output
  // and standard error when both go to one file.
  fflush(stdout);
  fflush(stderr);
  ending();
  exit(1);
}
