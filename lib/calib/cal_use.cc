#include "calib/cal_use.h"

#include "calib/calib_common.h"

CalFile calib_load_file(const char* module, void** params, int nparam, int nvalues) {
  if (nparam < 1) calib_init_fail(module, "Invalid number of parameters, should name a calibration file\n");
  const char* name = calib_param_string(params, 0);
  calib_struct* cal = read_cal_file(name);
  if (!cal) calib_init_fail(module, "Cannot read calibration file %s\n", name);
  if (cal->nrecords > 0 && cal->ndata < nvalues)
    calib_init_fail(module, "Calibration file %s has %d values per record, should have %d\n", name,
                    cal->ndata, nvalues);
  return CalFile(cal, [](const calib_struct* p) { free_cal_file(const_cast<calib_struct*>(p)); });
}
