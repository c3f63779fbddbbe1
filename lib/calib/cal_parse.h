// Between the calibration-file grammar and the code that builds the loaded
// structure: the parse state and the actions the grammar calls.
#ifndef HERON_CALIB_CAL_PARSE_H
#define HERON_CALIB_CAL_PARSE_H

#include <stddef.h>

#include "calib/cal_file.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cal_parse {
  calib_struct* cal;  // the structure being filled
  const char* path;   // the file as found beneath the install root, for the places in messages
  size_t time_cap;    // room in cal->times, records
  size_t data_cap;    // room in the value block, values
  size_t nvalues_all; // values stored so far, all records
  double* values;     // the value block
  int nvalues;        // values of the record being read
  int line;           // line of the token scanned last, from 1
  int next_line;      // line of the next token
  int quiet;          // checking: keep the first fault below instead of printing
  int fault_line;     // line of the first fault kept, 0 while there is none
  char fault[160];    // its text
};

// Appends a value to the record being read.
void cal_parse_value(struct cal_parse* st, double v);

// Ends a record stamped t.  Returns 0, or 1 after reporting a record whose
// number of values differs from the first record's.
int cal_parse_record(struct cal_parse* st, double t);

// Year as written (04, 99, 1998) to the full year.
int cal_parse_year(int year);

// Seconds since 1970 UTC of a calendar date (month 0 .. 11) at midnight.
double cal_parse_date(int year, int month, int day);

// Seconds since 1970 UTC of midnight starting day of year yday (1 = Jan 1).
double cal_parse_yday(int year, int yday);

// Seconds into the day of a clock time written as one number hhmmss.fff.
double cal_parse_hhmmss(double v);

// Reports a parse failure: "<what> in line <n> of calibration file: <name>",
// followed by " (<path>)" when the file was found under another name.
void cal_parse_error(struct cal_parse* st, const char* what);

// The parser's own texts in the system's wording.
const char* cal_parse_text(const char* msg);

// Copies a token's text for the parser; exits when memory runs out.
char* cal_parse_string(const char* text, size_t len);

// Reports a character that starts no token.
void cal_parse_bad_char(struct cal_parse* st, unsigned char c);

#ifdef __cplusplus
}
#endif

#endif
