// The conversion functions of the library and their init functions, as the
// registry lists them, and the values some of them publish for others.
// Parameters, outputs and formulas of each are described in
// docs/calibration.md.
#ifndef HERON_CALIB_CONVERSIONS_H
#define HERON_CALIB_CONVERSIONS_H

#include "calib/calib_func.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CALIB_DECLARE(name)                                            \
  int name(double* time, calib_input in, float* out, int ichan);       \
  CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout);

CALIB_DECLARE(baro_GENERIC)
CALIB_DECLARE(baro_PARA)
CALIB_DECLARE(baro_vais)
CALIB_DECLARE(diff_float)
CALIB_DECLARE(dual_uv)
CALIB_DECLARE(fis_linear)
CALIB_DECLARE(linear)
CALIB_DECLARE(mode)
CALIB_DECLARE(plinear)
CALIB_DECLARE(poly)
CALIB_DECLARE(power)
CALIB_DECLARE(sonic_csat3)
CALIB_DECLARE(status)
CALIB_DECLARE(t_AIR)
CALIB_DECLARE(t_vaisala)
CALIB_DECLARE(td_linear)
CALIB_DECLARE(td_linear_interp)
CALIB_DECLARE(td_linear_dt)
CALIB_DECLARE(thermistor)
CALIB_DECLARE(wind_gill)
CALIB_DECLARE(wind_rmy)

#undef CALIB_DECLARE

// Index of the station pressure (mb) in sharedValues, written by plinear,
// baro_GENERIC and baro_PARA for the humidity and gas conversions of the
// same scan.  1e37 until a pressure is known.
enum { SHARED_PRESSURE = 0, SHARED_VALUES_COUNT = 1 };
extern float sharedValues[SHARED_VALUES_COUNT];

// Latest air temperature (degC) of each use of t_AIR, indexed by its ichan;
// null until t_AIR_init has run with a nonzero nchan.
extern float* temp_AIR;

// Latest air temperature (degC) of each use of t_vaisala, 1e37 until its
// first sample; null until t_vaisala_init has run with a nonzero nchan.
extern double* temp_vaisala;

#ifdef __cplusplus
}
#endif

#endif
