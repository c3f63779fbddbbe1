#!/bin/sh
# Builds serial_ingest and shows it at work without hardware: the example
# site's raw data are played, as an acquisition module's fast output, into a
# pseudo-terminal on which serial_ingest samples; then the site's archive
# is dumped in time order, a few of its variables are printed calibrated,
# and the start of the gas analyser's stream is
# shown as the hexadecimal and octal debugging dumps see it on the line.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target serial_ingest raw_playback raw_dump cal_dump
HERON=$(pwd)/examples/site
PROJECT=demo
OPS=ops1
export HERON PROJECT OPS
raw=$HERON/projects/$PROJECT/$OPS/raw
echo "== serial_ingest sampling a pseudo-terminal at 230400 baud, fed with"
echo "   $raw/tern1_20261121_120000.raw at ten times its speed"
echo "   (first 12 lines, then every 250th; the line hangs up at the end)"
build/tools/raw_playback -s 10 "$raw/tern1_20261121_120000.raw" -- \
  build/ingest/serial_ingest -B 23040 -L -d %s |
  awk 'NR <= 12 || NR % 250 == 0 { printf "%5d %s\n", NR, $0 } END { print "lines:", NR }' || true
echo
echo "== raw_dump of both modules' archives, merged in time order (first 16 lines)"
build/tools/raw_dump -D "2026 11 21" "$raw"/*.raw 2>/dev/null | sed -n '1,16p'
echo
echo "== cal_dump: the sonic's u and w, the barometer and the gas analyser's H2O,"
echo "   calibrated, as CSV (first 10 lines)"
build/tools/cal_dump -s "2026 11 21 12:00" -F CSV u.wind w.wind p.baro h2o.irga 2>/dev/null | sed -n '1,10p'
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
