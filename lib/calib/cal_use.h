// Loading the calibration file of one use of a conversion: the common
// start of the init functions whose coefficients come from a loaded file.
#ifndef HERON_CALIB_CAL_USE_H
#define HERON_CALIB_CAL_USE_H

#include <memory>

#include "calib/cal_file.h"

// A loaded file shared by the uses that hold it.
using CalFile = std::shared_ptr<const calib_struct>;

// Loads the file named by parameter 0 and checks that its records hold at
// least nvalues values.  Any fault is reported for module and exits with 1.
CalFile calib_load_file(const char* module, void** params, int nparam, int nvalues);

#endif
