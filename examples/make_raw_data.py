#!/usr/bin/env python3
"""Writes the raw-sample archives of the example site (project demo,
operations set ops1): thirty seconds of two acquisition modules, starting
2026-11-21 12:00:00 UTC, with time tags in the site's wierd12 form (seconds
of the day in the upper 20 bits, milliseconds in the low 12).

    python3 examples/make_raw_data.py

The values come from a fixed-start pseudo-random generator, so the files are
the same on every run.  Records follow the channel table
(examples/site/projects/demo/ops1/channel_config):

  tern1 serial 0   sonic anemometer: five 16-bit words in host (little-
                   endian) order: u, v, w, speed-of-sound counts, diagnostic
                   word (range codes 0, 6-bit record counter), 10 Hz
  tern1 serial 1   krypton hygrometer: one 16-bit count, 10 Hz
  tern1 analog 0-2 one big-endian 16-bit count each: 20, 20 and 1 Hz, sent
                   as sample channels 128-130 (after the serial channels)
  tern2 serial 2   gas analyser: four little-endian floats (CO2, H2O,
                   pressure, temperature), 10 Hz
"""
import math
import os
import random
import struct

START = 12 * 3600  # seconds of the day
SECONDS = 30
HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "site", "projects", "demo", "ops1", "raw")


def tag(ms):
    """Time tag of a millisecond of the day, wierd12, in wire order."""
    return struct.pack(">I", ((ms // 1000) << 12) | (ms % 1000))


def sample(ms, chan, data):
    return tag(ms) + bytes([chan, len(data)]) + data


def tern1(rng):
    records = []  # (ms, order, bytes): order keeps channels stable within a tick
    counter = 0
    for i in range(SECONDS * 10):
        ms = START * 1000 + i * 100
        t = i / 10.0
        u = 2.0 + 0.8 * math.sin(t / 3.0) + rng.gauss(0, 0.3)
        v = -1.0 + 0.5 * math.cos(t / 5.0) + rng.gauss(0, 0.3)
        w = rng.gauss(0, 0.15)
        c = 343.2 + 0.05 * math.sin(t / 7.0) + rng.gauss(0, 0.02)
        counter = (counter + 1) % 64
        words = (round(u / 0.002), round(v / 0.002), round(w / 0.002),
                 round((c - 340.0) / 0.001), counter)
        records.append((ms, 0, sample(ms, 0, struct.pack("<5h", *words))))
        kh = 2200 + int(150 * math.sin(t / 4.0)) + rng.randint(-20, 20)
        records.append((ms + 5, 1, sample(ms + 5, 1, struct.pack("<h", kh))))
    for i in range(SECONDS * 20):
        ms = START * 1000 + i * 50 + 2
        t = i / 20.0
        temp = int(3000 + 200 * math.sin(t / 10.0)) + rng.randint(-5, 5)
        rh = int(12000 + 300 * math.cos(t / 8.0)) + rng.randint(-10, 10)
        records.append((ms, 2, sample(ms, 0x80, struct.pack(">h", temp))))
        records.append((ms, 3, sample(ms, 0x81, struct.pack(">h", rh))))
    for i in range(SECONDS):
        ms = START * 1000 + i * 1000 + 7
        records.append((ms, 4, sample(ms, 0x82, struct.pack(">h", 16000 + rng.randint(-50, 50)))))
    records.sort()
    return b"".join(r[2] for r in records)


def tern2(rng):
    out = []
    for i in range(SECONDS * 10):
        ms = START * 1000 + i * 100 + 40
        t = i / 10.0
        co2 = 16.2 + 0.3 * math.sin(t / 6.0) + rng.gauss(0, 0.05)
        h2o = 480.0 + 20 * math.cos(t / 9.0) + rng.gauss(0, 2.0)
        out.append(sample(ms, 2, struct.pack("<4f", co2, h2o, 83.1, 12.5 + rng.gauss(0, 0.01))))
    return b"".join(out)


def main():
    rng = random.Random(20261121)
    os.makedirs(OUT, exist_ok=True)
    for name, data in (("tern1_20261121_120000.raw", tern1(rng)),
                       ("tern2_20261121_120000.raw", tern2(rng))):
        with open(os.path.join(OUT, name), "wb") as f:
            f.write(data)
        print("%s: %d bytes" % (name, len(data)))


if __name__ == "__main__":
    main()
