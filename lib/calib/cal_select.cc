// Choosing the record of a loaded calibration file that applies to a sample.
#include <math.h>

#include "calib/cal_file.h"

extern "C" void cal_select_start(cal_select* sel, const calib_struct* cal) {
  sel->cal = cal;
  sel->next = 0;
  sel->next_time = cal && cal->nrecords > 0 ? cal->times[0] : INFINITY;
  sel->in_force = nullptr;
}

extern "C" int cal_select_update(cal_select* sel, double t) {
  // Records whose times have all passed are applied in turn; the latest wins.
  int taken = 0;
  while (t >= sel->next_time) {
    sel->in_force = sel->cal->data[sel->next];
    ++sel->next;
    sel->next_time = sel->next < sel->cal->nrecords ? sel->cal->times[sel->next] : INFINITY;
    taken = 1;
  }
  return taken;
}
