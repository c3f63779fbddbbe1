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
  tern3 0     Gill research sonic (sonic_gill): binary result message,
              u, v, w and speed of sound in 0.01 m/s, checksum, 10 Hz
  tern3 201   open-path CO2/H2O analyser (licor_7500): unlabelled tab-
              separated record Ndx, DiagVal, CO2D, H2OD, Temp, Pres, 10 Hz
  tern3 202   datalogger output array 101 (camp_cr10): battery volts,
              panel and air temperature, humidity in low-resolution words,
              pressure in a high-resolution word, 1 Hz

tern3's values are rounded to what its instruments send (0.01 m/s, the
analyser's printed digits, the logger words' resolutions), so that its
truth is what a faultless decoder gives back; it has a generator of its
own, so the other two modules' files do not change with it.
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


def gill(words):
    """A Gill binary result message: start bytes, status, the words, and
    the exclusive or of every byte after the start bytes."""
    body = struct.pack(">BBhhhH", 0, 0, *words)
    check = 0
    for b in body:
        check ^= b
    return b"\xba\xba" + body + bytes([check])


def fp2(x, decimals):
    """A logger's low-resolution word: sign, decimal locator, 13-bit
    magnitude (at most 6999)."""
    mag = round(abs(x) * 10 ** decimals)
    assert mag <= 6999
    return struct.pack(">H", (x < 0) << 15 | decimals << 13 | mag)


def fp4(x, decimals):
    """A logger's high-resolution value: two words carrying the sign, the
    decimal exponent (4G + 2H + A) and a 17-bit magnitude."""
    mag = round(abs(x) * 10 ** decimals)
    a, g, h = decimals & 1, decimals >> 2 & 1, decimals >> 1 & 1
    first = a << 7 | (x < 0) << 6 | 0x1C | g << 1 | h
    return bytes([first, mag >> 8 & 0xFF, 0x3C | mag >> 16 & 1, mag & 0xFF])


def tern3(rng, truth):
    records = []
    for i in range(SECONDS * 10):
        ms = START * 1000 + i * 100 + 60
        t = i / 10.0
        u = round(3.0 + 0.6 * math.sin(t / 4.0) + rng.gauss(0, 0.3), 2)
        v = round(0.5 + 0.4 * math.cos(t / 6.0) + rng.gauss(0, 0.3), 2)
        w = round(rng.gauss(0, 0.2), 2)
        c = round(20.067 * math.sqrt(18.0 + 0.3 * math.sin(t / 5.0) + rng.gauss(0, 0.05) + 273.15), 2)
        ts = (c / 20.067) ** 2 - 273.15
        words = tuple(round(x * 100) for x in (u, v, w, c))
        records.append((ms, 0, sample(ms, 0, gill(words))))
        truth += [(ms, "u.gill", u), (ms, "v.gill", v), (ms, "w.gill", w), (ms, "tc.gill", ts),
                  (ms, "diag.gill", 0.0)]
        ms += 10
        co2 = round(15.8 + 0.2 * math.sin(t / 7.0) + rng.gauss(0, 0.03), 4)
        h2o = round(520.0 + 10.0 * math.cos(t / 8.0) + rng.gauss(0, 1.0), 3)
        temp = round(18.2 + rng.gauss(0, 0.01), 3)
        p = round(84.9 + rng.gauss(0, 0.01), 3)
        line = "%d\t250\t%.4f\t%.3f\t%.3f\t%.3f\r\n" % (i + 1, co2, h2o, temp, p)
        records.append((ms, 1, sample(ms, 201, line.encode())))
        truth += [(ms, "co2.opath", co2), (ms, "h2o.opath", h2o), (ms, "t.opath", temp), (ms, "p.opath", p),
                  (ms, "diag.opath", 250.0), (ms, "agc.opath", 10.0)]
    for i in range(SECONDS):
        ms = START * 1000 + i * 1000 + 80
        batt = round(12.6 + rng.uniform(-0.05, 0.05), 2)
        panel = round(21.0 + 0.1 * i / SECONDS, 2)
        temp = round(18.0 + rng.gauss(0, 0.1), 2)
        rh = round(55.0 + rng.gauss(0, 0.5), 1)
        p = round(849.0 + rng.uniform(-0.5, 0.5), 2)
        words = b"\xfc\x65" + fp2(batt, 2) + fp2(panel, 2) + fp2(temp, 2) + fp2(rh, 1) + fp4(p, 2)
        records.append((ms, 2, sample(ms, 202, words)))
        truth += [(ms, "batt.logger", batt), (ms, "panel.logger", panel), (ms, "t.logger", temp),
                  (ms, "rh.logger", rh), (ms, "p.logger", p)]
    records.sort()
    return b"".join(r[2] for r in records)


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
                       ("tern2_%s.raw" % stamp, tern2(rng, truth)),
                       ("tern3_%s.raw" % stamp, tern3(random.Random(20261122), truth))):
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
