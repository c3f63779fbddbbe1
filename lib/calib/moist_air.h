// Moist-air relations for the humidity conversions, in one place so that
// every conversion derives the same quantities the same way.  Temperatures
// are in degC, vapour and air pressures in hPa (mb).  Each function gives
// 1e37 when an argument is missing (1e36 or more) or the result has no
// meaning (a non-positive vapour pressure, vapour pressure at or above the
// air pressure).
#ifndef HERON_CALIB_MOIST_AIR_H
#define HERON_CALIB_MOIST_AIR_H

// Saturation vapour pressure over water at t:
// 6.1121 exp((18.678 - t/234.5) t / (257.14 + t)).
double moist_es(double t);

// Dew point of vapour pressure e, the inverse of moist_es.
double moist_dew_point(double e);

// Vapour density, g/m^3: 216.7 e / (t + 273.15).
double moist_vapour_density(double e, double t);

// Mixing ratio, g/kg: 622 e / (p - e).
double moist_mixing_ratio(double e, double p);

#endif
