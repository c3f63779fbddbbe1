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

// The registry: one row per conversion, in the registry's fixed order.  A
// row names the conversion once; its init function, both functions'
// declarations and both entries of function_list follow from it, so a
// conversion cannot be registered without its init function.  Adding a
// conversion is one row here plus its source file.
#define HERON_CALIB_CONVERSIONS(ROW) \
  ROW(baro_GENERIC)                  \
  ROW(baro_PARA)                     \
  ROW(baro_vais)                     \
  ROW(camp_cr10)                     \
  ROW(camp_21x_bin)                  \
  ROW(camp_hr_bin)                   \
  ROW(campbell_binary)               \
  ROW(diff_float)                    \
  ROW(dual_uv)                       \
  ROW(fis_linear)                    \
  ROW(gps)                           \
  ROW(gps_date)                      \
  ROW(h2o_vaisala)                   \
  ROW(licor_co2)                     \
  ROW(licor_mode)                    \
  ROW(licor_7500)                    \
  ROW(linear)                        \
  ROW(mode)                          \
  ROW(plinear)                       \
  ROW(poly)                          \
  ROW(power)                         \
  ROW(q_kh2o)                        \
  ROW(q_kh2o_serial)                 \
  ROW(q_kh2o_serializer)             \
  ROW(rain_sti700)                   \
  ROW(rad_net_Q7)                    \
  ROW(serial_float)                  \
  ROW(serial_short)                  \
  ROW(serial_ushort)                 \
  ROW(serial_float_linear)           \
  ROW(sf6_mode)                      \
  ROW(solent_tv)                     \
  ROW(sonic_csat3)                   \
  ROW(sonic_gill)                    \
  ROW(sonic_gill_transit)            \
  ROW(sonic_metek)                   \
  ROW(status)                        \
  ROW(t_AIR)                         \
  ROW(t_vaisala)                     \
  ROW(teco)                          \
  ROW(td_linear)                     \
  ROW(td_linear_interp)              \
  ROW(td_linear_dt)                  \
  ROW(thermistor)                    \
  ROW(wind_gill)                     \
  ROW(wind_rmy)

#define HERON_CALIB_DECLARE(name)                                 \
  int name(double* time, calib_input in, float* out, int ichan); \
  CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout);

HERON_CALIB_CONVERSIONS(HERON_CALIB_DECLARE)

#undef HERON_CALIB_DECLARE

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

// How many entries temp_vaisala has: the uses of t_vaisala set up so far.
extern int temp_vaisala_uses;

#ifdef __cplusplus
}
#endif

#endif
