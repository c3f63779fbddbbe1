#!/usr/bin/env python3
"""Writes the raw-sample archives of the example site (project demo,
operations set ops1): thirty seconds of two acquisition modules, starting
2026-11-21 12:00:00 UTC, with time tags in the site's wierd12 form (seconds
of the day in the upper 20 bits, milliseconds in the low 12).

    python3 examples/make_raw_data.py [--seconds N] [--out FOLDER] [--start T]

--seconds (30 by default) sets the span, which must fit in the hour that
archive_config gives each file; --out (the site's raw folder by default)
writes the files elsewhere, e.g. the scaled-up data of the calibration
benchmark (bench/calibrate_bench.cc); --start (UTC seconds since 1970)
moves the start, e.g. to a few seconds from now for data played live into
a port (scripts/demo-chain.sh), whose time tags must be near the clock.
The file names carry the start; tags past midnight wrap to the new day.

Every record starts from known physical values, which are encoded through
the inverse of the calibration that prep.config gives the channel; the
values go to raw/truth.txt beside the archives ("ms did value" lines, the
time in milliseconds of the day), so that a calibration of the archives can
be checked against them.  The values come from a fixed-start pseudo-random
generator, so the files are the same on every run.

Sample channels follow the channel table (ops1/channel_config): analog
channels are 1-199, serial channels 0 and 200-255.

  tern1 0     sonic anemometer (sonic_csat3): five little-endian 16-bit
              words, u, v, w in 0.002 m/s, speed of sound in mm/s above
              340 m/s, diagnostic word (range codes 0, 6-bit counter), 10 Hz
  tern1 128   air temperature, linear 20 degC/V behind gain 2, offset
              -0.015 V, 20 Hz  (analog samples: one big-endian 16-bit count,
              10 V over 65536 counts)
  tern1 129   relative humidity, linear 20 %/V + 50 %, 20 Hz
  tern1 130   pressure, plinear 50 hPa/V + 800 hPa, 1 Hz
  tern1 131   krypton hygrometer signal (q_kh2o, Beer's law with x = 1.30
              cm, kw = 0.145, ln V0 = 1.62), 10 Hz
  tern2 200   gas analyser (serial_float_linear): four little-endian floats,
              CO2 mmol/m^3, H2O mmol/m^3, pressure kPa, temperature degC,
              10 Hz
"""
import argparse
import math
import time
import os
import random
import struct

START = 12 * 3600  # seconds of the day
SECONDS = 30
HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "site", "projects", "demo", "ops1", "raw")

# Krypton hygrometer calibration (cal_files/demo_kh2o.cal).
KH_X, KH_KW, KH_LNV0 = 1.30, 0.145, 1.62
H2O_G_PER_MMOL = 0.018015


def tag(ms):
    """Time tag of a millisecond of the day, wierd12, in wire order."""
    ms %= 86400000
    return struct.pack(">I", ((ms // 1000) << 12) | (ms % 1000))


def sample(ms, chan, data):
    return tag(ms) + bytes([chan, len(data)]) + data


def analog(ms, chan, x, gain=1.0, offset=0.0):
    """The count whose volts give x = (volts - offset) / gain."""
    count = round((x * gain + offset) * 65536 / 10.0)
    return sample(ms, chan, struct.pack(">h", count))


def tern1(rng, truth):
    records = []  # (ms, order, bytes): order keeps channels stable within a tick
    counter = 0
    for i in range(SECONDS * 10):
        ms = START * 1000 + i * 100
        t = i / 10.0
        u = 2.0 + 0.8 * math.sin(t / 3.0) + rng.gauss(0, 0.3)
        v = -1.0 + 0.5 * math.cos(t / 5.0) + rng.gauss(0, 0.3)
        w = rng.gauss(0, 0.15)
        tc = 17.0 + 0.4 * math.sin(t / 7.0) + rng.gauss(0, 0.05)
        c = 20.067 * math.sqrt(tc + 273.15)
        counter = (counter + 1) % 64
        # The anemometer reports a missing wind component as a zero count,
        # so a value within half a count of zero goes out as one count.
        words = tuple(round(x / 0.002) or 1 for x in (u, v, w)) + (round((c - 340.0) / 0.001), counter)
        records.append((ms, 0, sample(ms, 0, struct.pack("<5h", *words))))
        truth += [(ms, "u.wind", u), (ms, "v.wind", v), (ms, "w.wind", w), (ms, "tc.wind", tc),
                  (ms, "diag.wind", 0.0)]
        q = 8.0 + 1.0 * math.sin(t / 4.0) + rng.gauss(0, 0.1)
        volts = math.exp(KH_LNV0 - KH_X * KH_KW * q)
        records.append((ms + 5, 1, analog(ms + 5, 131, volts)))
        truth.append((ms + 5, "q.kh2o", q))
    for i in range(SECONDS * 20):
        ms = START * 1000 + i * 50 + 2
        t = i / 20.0
        temp = 15.0 + 3.0 * math.sin(t / 10.0) + rng.gauss(0, 0.02)
        rh = 60.0 + 5.0 * math.cos(t / 8.0) + rng.gauss(0, 0.05)
        records.append((ms, 2, analog(ms, 128, temp / 20.0, 2.0, -0.015)))
        records.append((ms, 3, analog(ms, 129, (rh - 50.0) / 20.0)))
        truth += [(ms, "t.met", temp), (ms, "rh.hum", rh)]
    for i in range(SECONDS):
        ms = START * 1000 + i * 1000 + 7
        p = 850.0 + rng.uniform(-0.5, 0.5)
        records.append((ms, 4, analog(ms, 130, (p - 800.0) / 50.0)))
        truth.append((ms, "p.baro", p))
    records.sort()
    return b"".join(r[2] for r in records)


def tern2(rng, truth):
    out = []
    for i in range(SECONDS * 10):
        ms = START * 1000 + i * 100 + 40
        t = i / 10.0
        co2 = 16.2 + 0.3 * math.sin(t / 6.0) + rng.gauss(0, 0.05)
        h2o = 8.6 + 0.4 * math.cos(t / 9.0) + rng.gauss(0, 0.04)
        p = 831.0 + rng.gauss(0, 0.1)
        temp = 12.5 + rng.gauss(0, 0.01)
        fields = struct.pack("<4f", co2, h2o / H2O_G_PER_MMOL, p / 10.0, temp)
        out.append(sample(ms, 200, fields))
        truth += [(ms, "co2.irga", co2), (ms, "h2o.irga", h2o), (ms, "p.irga", p), (ms, "t.irga", temp)]
    return b"".join(out)


def main():
    global SECONDS, START
    parser = argparse.ArgumentParser(description="Writes the example site's raw-sample archives.")
    parser.add_argument("--seconds", type=int, default=SECONDS, help="span of the data (default %(default)s)")
    parser.add_argument("--out", default=OUT, help="folder of the files (default: the site's raw folder)")
    parser.add_argument("--start", type=int, help="start, UTC seconds since 1970 (default 2026-11-21 12:00:00)")
    args = parser.parse_args()
    if not 1 <= args.seconds <= 3600:
        parser.error("--seconds must be 1 to 3600 (one archive file per module)")
    SECONDS = args.seconds
    stamp = "20261121_120000"
    if args.start is not None:
        START = args.start % 86400
        stamp = time.strftime("%Y%m%d_%H%M%S", time.gmtime(args.start))
    out_dir = args.out
    rng = random.Random(20261121)
    os.makedirs(out_dir, exist_ok=True)
    truth = []
    for name, data in (("tern1_%s.raw" % stamp, tern1(rng, truth)),
                       ("tern2_%s.raw" % stamp, tern2(rng, truth))):
        with open(os.path.join(out_dir, name), "wb") as f:
            f.write(data)
        print("%s: %d bytes" % (name, len(data)))
    with open(os.path.join(out_dir, "truth.txt"), "w") as f:
        f.write("# milliseconds of the day, data id, value encoded (make_raw_data.py)\n")
        for ms, did, value in sorted(truth):
            f.write("%d %s %.6f\n" % (ms % 86400000, did, value))
    print("truth.txt: %d values" % len(truth))


if __name__ == "__main__":
    main()
