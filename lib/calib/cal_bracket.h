// The two records of a line-form calibration file that bracket the sample
// time, kept by the conversions whose coefficients drift between
// calibrations.  The file stays open; a further record is read only when the
// sample time reaches the later of the two, and at end of file the file is
// closed and the last two records are kept.
#ifndef HERON_CALIB_CAL_BRACKET_H
#define HERON_CALIB_CAL_BRACKET_H

#include <stdio.h>

#include <memory>

struct CalBracket {
  static constexpr int kMaxValues = 3;
  struct Closer {
    void operator()(FILE* fp) const { fclose(fp); }
  };
  std::unique_ptr<FILE, Closer> fp;  // open until the file is exhausted
  int n = 0;                         // values per record
  double t1 = 0, t2 = 0;             // earlier and later record; t2 infinite if only one
  float v1[kMaxValues] = {}, v2[kMaxValues] = {};
};

// Opens name beneath the install root and reads its first two records of n
// (1 .. kMaxValues) values each.  An unopenable file (the system error
// prefixed by name) or a file without a record is an init fault of module.
void cal_bracket_open(CalBracket* b, const char* module, const char* name, int n);

// Reads on while t is at or after the later record's time.
void cal_bracket_update(CalBracket* b, double t);

// Value k at time t on the straight line through the two records; with one
// record its value, with two of the same time the later one's.
float cal_bracket_value(const CalBracket& b, int k, double t);

#endif
