// Calibration files: time-stamped records of coefficients, each valid from
// its own time until the next record's.  The loaded form is read whole at
// start-up by read_cal_file; the line form is read record by record as
// sample time advances (read_cal_rec).
#ifndef HERON_CALIB_CAL_FILE_H
#define HERON_CALIB_CAL_FILE_H

#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

// One loaded calibration file.
typedef struct calib_struct {
  int nrecords;         // records read
  int ndata;            // values per record, fixed by the first record
  double* times;        // nrecords record times, seconds since 1970 UTC
  double** data;        // data[i] points at record i's ndata values
  char* cal_file_name;  // the name the file was opened by
} calib_struct;

// Opens name through heron_cal_fopen for reading.  On failure prints the
// system error prefixed by name and returns null.
FILE* open_cal_file(const char* name);

// Opens name through heron_cal_fopen and parses it whole.  An unopenable file
// prints the system error prefixed by name and gives null.  A syntax error or
// a record whose value count differs from the first record's is reported
// through logit and ends the process with status 1.
calib_struct* read_cal_file(const char* name);

// Parses an open stream in the loaded form; name is used in messages.  On
// success stores a new structure in *result and returns 0; on a syntax error
// prints the same report as read_cal_file, frees what was built, and
// returns 1 instead of exiting; returns -1 when the structure itself cannot
// be allocated.
int parse_cal_stream(FILE* fp, const char* name, calib_struct** result);

// Checks an open stream in the loaded form, printing nothing: 0 when it
// parses clean, else 1 with the line and text of its first fault (a syntax
// error, a character that starts no token, a record whose value count
// differs from the first's) in *line and what (of size bytes).
int check_cal_stream(FILE* fp, const char* name, int* line, char* what, size_t size);

// Releases a structure from read_cal_file or parse_cal_stream.
void free_cal_file(calib_struct* cal);

// Reads the next record of the line form: the time text, then n values that
// are stored through the n float pointers that follow.  Returns n, or -1 at
// end of file.
int read_cal_rec(FILE* fp, double* time, int n, ...);

// Moves n separately allocated doubles (src[0..n-1]) into the n double
// variables whose addresses follow, freeing each source.
void set_cal_params(double** src, int n, ...);

// Seconds since 1970 UTC of the time text of a calibration record, in any of
// the date forms of UTime's string constructor, read as UTC.
double time_string_to_double(const char* text);

// Which record of a loaded file applies to the sample time.  Each user keeps
// one per use.
typedef struct cal_select {
  const calib_struct* cal;
  int next;          // index of the next record not yet applied
  double next_time;  // its time, or +infinity when none is left
  const double* in_force;  // values of the record applied last, null before
} cal_select;

// Starts a selection on cal (which must outlive it).
void cal_select_start(cal_select* sel, const calib_struct* cal);

// Applies every record whose time has come at time t; returns 1 when a new
// record was taken (sel->in_force then points at its values), else 0.
int cal_select_update(cal_select* sel, double t);

#ifdef __cplusplus
}
#endif

#endif
