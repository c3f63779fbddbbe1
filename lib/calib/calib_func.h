// The calibration-function registry and the record an init function returns.
//
// Every sensor kind has a conversion function and an init function named
// after it with "_init".  The channel configuration looks both up by name,
// calls the init function once per use before any conversion, and the
// calibration pipeline then calls the conversion function for every sample.
// A use is identified by ichan, 0 .. nchan-1, counted over all channels that
// share the function.
#ifndef HERON_CALIB_CALIB_FUNC_H
#define HERON_CALIB_CALIB_FUNC_H

#ifdef __cplusplus
extern "C" {
#endif

// Kinds of calibration parameters, shared with the sensor entries.
typedef enum param_type { CAL_STRING = 0, CAL_DOUBLE = 1 } param_type;

// What an init function reports about one use of its function.
typedef struct CalibInfo {
  char** units;       // nout slots; the first iout are owned strings, the rest null
  char* version;      // the module's revision text, owned
  char* paramString;  // one-line parameter summary, owned, may be null
  int iout;           // unit strings set so far
  int nout;           // outputs of the channel (capacity of units)
} CalibInfo;

// The input of a conversion: the volts of an analog channel, or the raw
// record bytes of any other channel.  One argument type for both kinds keeps
// every conversion function of the same C type, so the pipeline calls all of
// them through one pointer type.  The pipeline sets both members: a record
// conversion that a site puts on an analog channel reads that sample's own
// bytes (and zeros past them), never the volts taken for an address.
typedef struct calib_input {
  float volts;
  const char* raw;
} calib_input;

// Conversion: fills out[0 .. nout-1] for the sample at *time (seconds since
// 1970 UTC; a function that corrects time may change it).  Returns 0.
typedef int (*calib_func_t)(double* time, calib_input in, float* out, int ichan);

// Initialisation of use ichan of nchan.  params holds nparam pointers, each to
// a double or to a string as the function documents.  Returns a new
// CalibInfo (free with FreeCalibInfo).  With nchan 0 only the CalibInfo is
// built.  Configuration faults print a message and exit with status 1.
typedef CalibInfo* (*calib_init_t)(int ichan, int nchan, void** params, int nparam, int nout);

// The registry stores both kinds under this neutral pointer type; a lookup
// converts back to the entry's own type before it is called.
typedef void (*calib_any_t)(void);

typedef struct calib_entry {
  const char* name;
  calib_any_t func;
} calib_entry;

// Name-to-function table, conversions each followed by their init function,
// ended by a {null, null} entry; made from the registry list
// HERON_CALIB_CONVERSIONS (calib/conversions.h).
extern const calib_entry function_list[];

// The function registered under exactly this name, or null.  Init functions
// are registered under their own names, so "linear_init" finds linear_init;
// call such a result only after converting it with calib_as_init.
calib_func_t calib_function(const char* name);

// The init function of the named conversion (name + "_init"), or null.
calib_init_t init_function(const char* name);

// Converts a registry result known to be an init function back to its type.
calib_init_t calib_as_init(calib_func_t f);

// A CalibInfo with nout empty unit slots and a copy of version.
CalibInfo* AllocCalibInfo(int nout, const char* version);

// Frees the unit strings, the arrays, the texts and the record.
void FreeCalibInfo(CalibInfo* info);

// Stores a copy of units in the next free slot; a surplus unit is dropped.
void CalibInfoAppendUnits(CalibInfo* info, const char* units);

// Appends the first min(n, nout) of the n unit strings that follow.
void CalibInfoSetUnits(CalibInfo* info, int n, ...);

// Formats the parameter summary (at most 511 characters) into paramString.
void CalibInfoSetParamString(CalibInfo* info, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif
