// The line form of calibration files and the moving of parsed parameters.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "calib/cal_file.h"
#include "calib/calib_common.h"

namespace {

// A line longer than this is read in pieces, each taken as a line.
constexpr int kLineMax = 255;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

}  // namespace

extern "C" int read_cal_rec(FILE* fp, double* time, int n, ...) {
  char line[kLineMax + 1];
  if (n < 0) return -1;
  // Start of each value field, found from the end of the line.
  char** fields = static_cast<char**>(malloc(sizeof(char*) * (n > 0 ? n : 1)));
  if (!fields) calib_alloc_fail("read_cal_file.c");

  for (;;) {
    if (!fgets(line, sizeof line, fp)) {
      free(fields);
      return -1;
    }
    char* hash = strchr(line, '#');
    if (hash) *hash = '\0';

    // Walk back over the last n fields, terminating each.
    char* end = line + strlen(line);
    int found = 0;
    while (found < n) {
      while (end > line && is_blank(end[-1])) --end;
      if (end == line) break;
      *end = '\0';
      char* start = end;
      while (start > line && !is_blank(start[-1])) --start;
      fields[n - 1 - found] = start;
      ++found;
      end = start;
    }
    if (found < n) continue;
    // There must be a time text before the values.
    while (end > line && is_blank(end[-1])) --end;
    if (end == line) continue;
    *end = '\0';

    *time = time_string_to_double(line);
    va_list ap;
    va_start(ap, n);
    for (int i = 0; i < n; ++i) {
      float* dst = va_arg(ap, float*);
      float v;
      if (sscanf(fields[i], "%f", &v) == 1) *dst = v;
    }
    va_end(ap);
    free(fields);
    return n;
  }
}

extern "C" void set_cal_params(double** src, int n, ...) {
  va_list ap;
  va_start(ap, n);
  for (int i = 0; i < n; ++i) {
    double* dst = va_arg(ap, double*);
    *dst = *src[i];
    free(src[i]);
    src[i] = nullptr;
  }
  va_end(ap);
}
