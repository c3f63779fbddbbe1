// The time text of a line-form calibration record: any of the date forms
// that the rest of the system reads and writes, taken as UTC.
#include "time/UTime.h"
#include "calib/cal_file.h"

extern "C" double time_string_to_double(const char* text) { return UTime(0, text).val(); }
