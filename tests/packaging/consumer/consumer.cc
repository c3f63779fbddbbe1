// Uses one piece of each installed library through the installed headers.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "calib/calib_func.h"
#include "site/heron_fopen.h"
#include "time/UTime.h"

int main() {
  setenv("HERON", "/srv/heron", 1);
  char* path = heron_expand_name("$HERON/config");
  const bool named = path != nullptr && strcmp(path, "/srv/heron/config") == 0;
  free(path);
  setenv("TZ", "UTC", 1);
  const bool timed = UTime(86400.0).string("%Y-%m-%d") == "1970-01-02";
  return named && timed && calib_function("linear") != nullptr ? 0 : 1;
}
