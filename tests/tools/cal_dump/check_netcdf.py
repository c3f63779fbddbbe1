# Reads cal_dump's NetCDF files of the example site as a scientist would,
# with xarray, and checks the conventions point by point (no CF checker is
# packaged).  Usage: check_netcdf.py SAMPLES.nc STATISTICS.nc, the files
# holding 2026-11-21 12:00:00 to 12:00:30 of u.wind, w.wind, t.met
# (calibrated to 5e36, a near-missing value) and p.baro, the statistics
# over 10 s with the covariance of w.wind with u.wind.  Prints OK.
import ctypes
import re
import sys

import numpy as np
import xarray as xr

udunits = ctypes.CDLL("libudunits2.so.0")
udunits.ut_read_xml.restype = udunits.ut_parse.restype = ctypes.c_void_p
udunits.ut_parse.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
units_system = udunits.ut_read_xml(None)
NOON = np.datetime64("2026-11-21T12:00:00.000", "ns")
HISTORY = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ: \S*cal_dump -s "
TIME = ("milliseconds since 1970-01-01 00:00:00 UTC", "standard", np.int64)


def check(cond, what):
    if not cond:
        raise AssertionError(what)


# Globals, time encodings, names, units that UDUNITS-2 reads, the wanted
# attributes (None: absent), and the 5e36 temperature read as missing.
def common(ds, want):
    g = ds.attrs
    check(g["Conventions"] == "CF-1.8" and g["source"].startswith("cal_dump (") and re.match(HISTORY, g["history"]), g)
    check((g["project"], g["ops"]) == ("demo", "ops1") and "featureType" not in g, g)
    for name in ds.coords:
        check(tuple(ds[name].encoding[k] for k in ("units", "calendar", "dtype")) == TIME, ds[name].encoding)
    for name, var in ds.data_vars.items():
        check(re.fullmatch("[A-Za-z][A-Za-z0-9_]*", name), name)
        units = var.attrs.get("units")
        check(units is None or udunits.ut_parse(units_system, units.encode(), 2), (name, units))
        if name.startswith("t_met"):
            check(bool((var == 0).all() if name.endswith("_count") else var.isnull().all()), name)
    for name, attrs in want.items():
        for key, value in attrs.items():
            check(ds[name].attrs.get(key) == value, (name, key, ds[name].attrs))


# The times of var's axis are exactly NOON + first + k step (milliseconds).
def times(ds, var, first, step, n):
    got = ds[ds[var].dims[0]].values
    check(len(got) == n and (got == NOON + (first + step * np.arange(n)) * np.timedelta64(1, "ms")).all(), got[:3])


s = xr.open_dataset(sys.argv[1])
common(s, {"u_wind": {"heron_id": "u.wind", "standard_name": None, "cell_methods": None},
           "w_wind": {"standard_name": "upward_air_velocity"}, "p_baro": {"units": "hPa", "standard_name": "air_pressure"},
           "t_met": {"standard_name": "air_temperature", "long_name": "air temperature (met)"}})
check(s.u_wind.dims != s.p_baro.dims and "time_bnds" not in s and bool(s.u_wind.notnull().all()), s)
check(abs(float(s.p_baro[0]) - 850.0488) < 1e-3, s.p_baro)
times(s, "u_wind", 0, 100, 300)
times(s, "p_baro", 7, 1000, 30)
a = xr.open_dataset(sys.argv[2])
common(a, {"time": {"bounds": "time_bnds"}, "u_wind_var": {"cell_methods": "time: variance"},
           "t_met_mean": {"cell_methods": "time: mean", "long_name": "air temperature (met), 10-second mean"},
           "u_wind_count": {"cell_methods": "time: sum", "standard_name": "number_of_observations"},
           "p_baro_var": {"units": "(hPa)^2", "standard_name": "air_pressure"},
           "cov_w_wind_u_wind": {"cell_methods": None, "standard_name": None, "heron_id": "w.wind u.wind"}})
check(set(a.dims) == {"time", "nv"} and bool((a.u_wind_count == 100).all()), a)
times(a, "u_wind_mean", 0, 10000, 3)
bounds = a.time_bnds.values
check((bounds[:, 0] == a.time.values).all() and (bounds[:, 1] - bounds[:, 0] == np.timedelta64(10, "s")).all(), bounds)
print("OK")
