#include "calib/linear_family.h"

CalibInfo* fixed_line_init(const char* module, const char* version, UseTable<Line>& lines, int min,
                           int max, const char* unit, int ichan, int nchan, void** params, int nparam,
                           int nout) {
  calib_check_nparam(module, nparam, min, max);
  Line l;
  l.slope = static_cast<float>(calib_param_double(params, 0));
  l.intcpt = static_cast<float>(calib_param_double(params, 1));
  CalibInfo* info = calib_info(version, nout, {unit});
  CalibInfoSetParamString(info, "slope=%.2f, intcpt=%.2f", l.slope, l.intcpt);
  if (nchan > 0) lines.prepare(module, ichan, nchan) = l;
  return info;
}

CalibInfo* file_line_info(const char* module, const char* version, void** params, int nparam, int nout,
                          const char* default_unit) {
  calib_check_nparam(module, nparam, 1, 2);
  CalibInfo* info = calib_info(version, nout, {nparam > 1 ? calib_param_string(params, 1) : default_unit});
  CalibInfoSetParamString(info, "\"%s\"", calib_param_string(params, 0));
  return info;
}

CalibInfo* file_line_init(const char* module, const char* version, UseTable<FileLine>& uses,
                          int nvalues, int ichan, int nchan, void** params, int nparam, int nout) {
  CalibInfo* info = file_line_info(module, version, params, nparam, nout);
  if (nchan > 0) {
    FileLine& u = uses.prepare(module, ichan, nchan);
    u.cal = calib_load_file(module, params, nparam, nvalues);
    cal_select_start(&u.sel, u.cal.get());
  }
  return info;
}
