#!/bin/sh
# Builds serial_ingest and shows it at work without hardware: the example
# site's raw data are played, as an acquisition module's fast output, into a
# pseudo-terminal on which serial_ingest samples (after site_check has read
# every site file); then the whole chain runs
# live (playback, port, serial_ingest -z, Ingest, archive and a live client:
# scripts/demo-chain.sh); then the site's archive is dumped in time order, a few of its variables are printed calibrated
# (among them the third module's Gill sonic, open-path analyser and logger array),
# and the start of the gas analyser's stream is
# shown as the hexadecimal and octal debugging dumps see it on the line.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target serial_ingest raw_playback raw_dump cal_dump ingest_server ingest_status site_check
HERON=$(pwd)/examples/site
PROJECT=demo
OPS=ops1
export HERON PROJECT OPS
raw=$HERON/projects/$PROJECT/$OPS/raw
echo "== site_check: every file of the example site, as the unit checks a site"
echo "   before a start or a reload"
build/tools/site_check/site_check -v
echo
echo "== serial_ingest sampling a pseudo-terminal at 230400 baud, fed with"
echo "   $raw/tern1_20261121_120000.raw at ten times its speed"
echo "   (first 12 lines, then every 250th; the line hangs up at the end)"
build/tools/raw_playback -s 10 "$raw/tern1_20261121_120000.raw" -- \
  build/ingest/serial_ingest -B 23040 -L -d %s |
  awk 'NR <= 12 || NR % 250 == 0 { printf "%5d %s\n", NR, $0 } END { print "lines:", NR }' || true
echo
echo "== the whole chain, live: the example data, re-timed to start now, played"
echo "   at 230400 baud into a pseudo-terminal; serial_ingest -z starts Ingest on"
echo "   it, which archives every sample and serves them to live clients"
live=$(pwd)/build/demo-live
rm -rf "$live"
mkdir -p "$live"
cp -R examples/site "$live/site"
rm -f "$live/site/projects/$PROJECT/$OPS/raw/"*
python3 examples/make_raw_data.py --seconds 12 --start $(($(date +%s) + 3)) --out "$live/play" >/dev/null
echo "   (on a network of its own, with its own rpcbind: a running station on"
echo "   this computer is not disturbed)"
HERON=$live/site sh scripts/private-net.sh build/tools/raw_playback -w 3 "$live/play"/tern1_*.raw -- \
  sh scripts/demo-chain.sh %s "$(pwd)/build" 8
# A run across the hour writes two files: in name order they are the
# samples in the order played.
archived=$(ls "$live/site/projects/$PROJECT/$OPS/raw/"tern1_*.raw)
echo "-- the archive Ingest wrote:" $archived
if cat $archived | cmp -s "$live/play"/tern1_*.raw -; then
  echo "   holds exactly the samples played, byte for byte"
else
  echo "   differs from the samples played" >&2
  exit 1
fi
echo

echo "== raw_dump of the three modules' archives, merged in time order (first 16 lines)"
build/tools/raw_dump -D "2026 11 21" "$raw"/*.raw 2>/dev/null | sed -n '1,16p'
echo
# The first 300 bytes of a file: a dozen samples with their end-of-message bytes.
head -c 300 "$raw/tern2_20261121_120000.raw" >build/demo-head.raw
for mode in -H -O; do
  echo "== serial_ingest $mode on a pseudo-terminal fed with the first 300 bytes of"
  echo "   $raw/tern2_20261121_120000.raw (the dump ends when the line hangs up)"
  build/tools/raw_playback -n build/demo-head.raw -- build/ingest/serial_ingest -L "$mode" -d %s 2>/dev/null || true
  echo
  echo
done
echo "== cal_dump: the sonic's u and w, the barometer and the gas analyser's H2O,"
echo "   calibrated, as CSV (first 10 lines)"
build/tools/cal_dump/cal_dump -s "2026 11 21 12:00" -F CSV u.wind w.wind p.baro h2o.irga 2>/dev/null | sed -n '1,10p'
echo
echo "== cal_dump: tern3, a flux station of today's instruments: the Gill sonic's u"
echo "   and sonic temperature, the open-path analyser's CO2 and H2O, and the"
echo "   logger array's air temperature and pressure, calibrated (first 8 lines)"
build/tools/cal_dump/cal_dump -s "2026 11 21 12:00" -F CSV u.gill tc.gill co2.opath h2o.opath t.logger p.logger \
  2>/dev/null | sed -n '1,8p'
echo
echo "== cal_dump: ten-second means and the covariances of w with u, the sonic"
echo "   temperature and the hygrometer's q (the eddy fluxes' moments; the"
echo "   variances and counts are in the same CSV)"
build/tools/cal_dump/cal_dump -s "2026 11 21 12:00" -F CSV -a 10 -c w.wind:u.wind,tc.wind,q.kh2o \
  u.wind w.wind tc.wind q.kh2o 2>/dev/null |
  python3 -c 'import csv, sys
for r in csv.reader(sys.stdin):
    print(" ".join("%-17.17s" % f for f in [r[0][11:19] or r[0]] + r[1:13:3] + r[13:]))'
echo
png=$(pwd)/build/demo-look.png
build/tools/cal_dump/cal_dump -s "2026 11 21 12:00" --plot "$png" -F CSV u.wind w.wind t.met rh.hum p.baro h2o.irga \
  >/dev/null 2>/dev/null
echo "== a quick look at the example site, calibrated: $png"
