// What the straight-line conversions share: the line and its evaluation, the
// init of a line given by its parameters, and the init and record choice of
// a line whose coefficients come from a loaded calibration file.  Each module
// keeps its own per-use table and only what is its own: linear, plinear (the
// station pressure), t_AIR (its latest temperature), td_linear, td_linear_dt
// (the time correction) and fis_linear (a line through two points).
#ifndef HERON_CALIB_LINEAR_FAMILY_H
#define HERON_CALIB_LINEAR_FAMILY_H

#include "calib/cal_use.h"
#include "calib/calib_common.h"

// out = intcpt + slope * (volts - x0).  x0 is 0 except for a line through two
// reference points, which keeps its first point's abscissa so that the line
// passes through that point exactly.
struct Line {
  float slope = 0, intcpt = 0, x0 = 0;
  float at(float volts) const { return intcpt + slope * (volts - x0); }
};

// The conversion of a line at volts into out[0]; the value is also written
// to *publish when that is not null.  Returns 0.
inline int line_convert(const Line& l, float volts, float* out, float* publish = nullptr) {
  out[0] = l.at(volts);
  if (publish) *publish = out[0];
  return 0;
}

// The line of parameters 0 (slope) and 1 (intercept) of min .. max
// parameters, stored for use ichan when nchan is nonzero; returns the
// CalibInfo with unit and the summary "slope=%.2f, intcpt=%.2f".
CalibInfo* fixed_line_init(const char* module, const char* version, UseTable<Line>& lines, int min,
                           int max, const char* unit, int ichan, int nchan, void** params, int nparam,
                           int nout);

// One use of a line taken from the records of a loaded calibration file.
struct FileLine {
  CalFile cal;
  cal_select sel;
  Line line;
  bool usable = false;  // a record is in force and gives a line
  double dt = 0;        // seconds added to the sample time (td_linear_dt)
};

// The check and CalibInfo of a line from a calibration file.  Parameters:
// the file [text], unit [text, optional, default_unit when absent]; summary
// "\"<file>\"".
CalibInfo* file_line_info(const char* module, const char* version, void** params, int nparam, int nout,
                          const char* default_unit = "");

// Parameters: the calibration file [text] whose records hold at least
// nvalues values, unit [text, optional].  Loads the file for use ichan when
// nchan is nonzero; returns the CalibInfo with the unit and the summary
// "\"<file>\"".
CalibInfo* file_line_init(const char* module, const char* version, UseTable<FileLine>& uses,
                          int nvalues, int ichan, int nchan, void** params, int nparam, int nout);

// The first two values of a record as slope and intercept.
inline Line line_of_record(const double* r) {
  Line l;
  l.slope = static_cast<float>(r[0]);
  l.intcpt = static_cast<float>(r[1]);
  return l;
}

// The value at the sample time t: take(record, &use) turns each record
// that comes into force into the use's line and returns whether it gives
// one.  Missing before the first record and while the record gives no line.
template <typename Take>
float file_line_at(FileLine& u, double t, float volts, Take take) {
  if (cal_select_update(&u.sel, t)) u.usable = take(u.sel.in_force, u);
  return u.usable ? u.line.at(volts) : CALIB_MISSING;
}

#endif
