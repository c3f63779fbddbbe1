# Reads cal_dump's NetCDF files of the example site as a scientist would,
# with xarray, and checks the conventions point by point (no CF checker is
# packaged).  Usage: check_netcdf.py SAMPLES.nc STATISTICS.nc, where the
# files hold 2026-11-21 12:00:00 to 12:00:30 of u.wind, w.wind, t.met
# (calibrated to 5e36, a near-missing value) and p.baro, the statistics over
# 10 s with the covariance of w.wind with u.wind.  Prints OK.
import ctypes
import re
import sys

import numpy as np
import xarray as xr

udunits = ctypes.CDLL("libudunits2.so.0")
udunits.ut_read_xml.restype = ctypes.c_void_p
udunits.ut_parse.restype = ctypes.c_void_p
udunits.ut_parse.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
udunits.ut_free.argtypes = [ctypes.c_void_p]
units_system = udunits.ut_read_xml(None)
assert units_system, "the UDUNITS-2 database does not load"
UT_UTF8 = 2

NOON = np.datetime64("2026-11-21T12:00:00.000", "ms")


def check(cond, what):
    if not cond:
        raise AssertionError(what)


def unit_reads(text):
    unit = udunits.ut_parse(units_system, text.encode(), UT_UTF8)
    udunits.ut_free(unit)
    return bool(unit)


def common(ds):
    g = ds.attrs
    check(g["Conventions"] == "CF-1.8", g)
    check(re.match(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ: \S*cal_dump -s ", g["history"]), g["history"])
    check(g["source"].startswith("cal_dump ("), g["source"])
    check((g["project"], g["ops"]) == ("demo", "ops1"), g)
    for name, var in ds.data_vars.items():
        check(re.fullmatch(r"[A-Za-z][A-Za-z0-9_]*", name), name)
        if name.endswith("_bnds"):
            continue
        check(var.attrs["long_name"] not in (name, var.attrs["heron_id"]), (name, var.attrs))
        check(var.dtype == np.float32, (name, var.dtype))
        units = var.attrs.get("units")
        check(units is None or unit_reads(units), (name, units))
    for name in ds.coords:
        enc = ds[name].encoding
        check(enc["units"] == "milliseconds since 1970-01-01 00:00:00 UTC", enc)
        check(enc["calendar"] == "standard" and enc["dtype"] == np.int64, enc)
    # The calibration's 5e36 is no temperature, nor a value to count.
    for name in (v for v in ds.data_vars if v.startswith("t_met")):
        check(bool((ds[name] == 0).all() if name.endswith("_count") else ds[name].isnull().all()), name)


def exact(times, start, step_ms, n):
    want = start + np.arange(n) * np.timedelta64(step_ms, "ms")
    got = times.values.astype("datetime64[ns]")
    check(len(got) == n and (got == want.astype("datetime64[ns]")).all(), (got[:3], want[:3]))


def samples(ds):
    common(ds)
    check(ds.u_wind.attrs["heron_id"] == "u.wind" and "standard_name" not in ds.u_wind.attrs, ds.u_wind.attrs)
    check(ds.w_wind.attrs["standard_name"] == "upward_air_velocity", ds.w_wind.attrs)
    check(ds.p_baro.attrs["units"] == "hPa" and ds.p_baro.attrs["standard_name"] == "air_pressure", ds.p_baro.attrs)
    check(ds.t_met.attrs["standard_name"] == "air_temperature", ds.t_met.attrs)
    check("cell_methods" not in ds.u_wind.attrs and "time_bnds" not in ds, "samples are no cells")
    wind, baro = ds.u_wind.dims[0], ds.p_baro.dims[0]
    check(wind != baro and ds.w_wind.dims[0] == wind, (wind, baro))
    exact(ds[wind], NOON, 100, 300)
    exact(ds[baro], NOON + np.timedelta64(7, "ms"), 1000, 30)
    check(abs(float(ds.p_baro[0]) - 850.0488) < 1e-3 and bool(ds.u_wind.notnull().all()), "values")


def statistics(ds):
    common(ds)
    check(set(ds.dims) == {"time", "nv"}, ds.dims)
    exact(ds.time, NOON, 10000, 3)
    check(ds.time.attrs["bounds"] == "time_bnds" and "10-second" in ds.time.attrs["comment"], ds.time.attrs)
    bounds = ds.time_bnds.values.astype("datetime64[ns]")
    check((bounds[:, 0] == ds.time.values).all(), bounds)
    check((bounds[:, 1] - bounds[:, 0] == np.timedelta64(10, "s")).all(), bounds)
    cells = {"u_wind_mean": "time: mean", "u_wind_var": "time: variance", "u_wind_count": "time: sum"}
    for name, cell in cells.items():
        check(ds[name].attrs["cell_methods"] == cell, ds[name].attrs)
    check(ds.u_wind_count.attrs["standard_name"] == "number_of_observations", ds.u_wind_count.attrs)
    check((ds.u_wind_count.values == 100).all(), ds.u_wind_count.values)
    check(ds.p_baro_var.attrs["units"] == "(hPa)^2", ds.p_baro_var.attrs)
    check(ds.p_baro_var.attrs["standard_name"] == "air_pressure", ds.p_baro_var.attrs)
    cov = ds.cov_w_wind_u_wind.attrs
    check("cell_methods" not in cov and "standard_name" not in cov and cov["heron_id"] == "w.wind u.wind", cov)
    check(cov["long_name"].startswith("covariance of upward air velocity (wind) and "), cov)


samples(xr.open_dataset(sys.argv[1]))
statistics(xr.open_dataset(sys.argv[2]))
print("OK")
