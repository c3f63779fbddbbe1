// Feeds arbitrary bytes to the calibration-file parser: it must report or
// accept them without a crash, a leak or undefined behaviour.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "calib/cal_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  FILE* fp = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (!fp) return 0;
  calib_struct* cal = nullptr;
  if (parse_cal_stream(fp, "fuzz.cal", &cal) == 0 && cal) {
    // Walk what was built so that a bad pointer shows.
    double sum = 0;
    for (int i = 0; i < cal->nrecords; ++i) {
      sum += cal->times[i];
      for (int j = 0; j < cal->ndata; ++j) sum += cal->data[i][j];
    }
    if (sum == 0.12345) fputs("", stderr);
    cal_select sel;
    cal_select_start(&sel, cal);
    cal_select_update(&sel, 1e300);
    free_cal_file(cal);
  }
  fclose(fp);
  return 0;
}
