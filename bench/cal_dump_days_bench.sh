#!/bin/sh
# The speed-up of cal_dump_days on this computer: a week of the example
# site at its real rates, made into NetCDF station-day files with one job,
# then with JOBS (default: the number of processors).
#
#   sh bench/cal_dump_days_bench.sh BUILD_DIR SITE_DIR [JOBS]
#
# SITE_DIR receives a copy of the example site whose archives hold
# 2026-11-21 to 2026-11-27: one day generated hour by hour (a file holds an
# hour), hard-linked under the names of the other six (the time tags carry
# only the time of day; the file name gives the day).  It is made once and
# kept for the next runs; remove it when done.
set -eu
usage="usage: sh bench/cal_dump_days_bench.sh BUILD_DIR SITE_DIR [JOBS]"
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:?$usage}" && pwd)
site=${2:?$usage}
jobs=${3:-$(nproc)}
raw=$site/projects/demo/ops1/raw

if [ ! -e "$raw/tern1_20261127_230000.raw" ]; then
  mkdir -p "$site"
  cp -R "$src/examples/site/." "$site"
  rm -f "$raw"/*
  # 2026-11-21 hour by hour, each hour in a folder of its own (the
  # generator writes its truth file beside the archives), in parallel.
  seq 0 23 | parallel --will-cite -j "$jobs" \
    "python3 '$src/examples/make_raw_data.py' --seconds 3600 --start \$((1795219200 + {} * 3600)) --out '$site/h{}' >/dev/null && mv '$site/h{}'/*.raw '$raw' && rm -r '$site/h{}'"
  for day in 22 23 24 25 26 27; do
    for f in "$raw"/*_20261121_*.raw; do
      ln "$f" "$(echo "$f" | sed "s/_20261121_/_202611${day}_/")"
    done
  done
fi

export HERON="$site" PROJECT=demo OPS=ops1 CAL_DUMP="$build/tools/cal_dump/cal_dump"
now() { date +%s.%N; }
for j in 1 "$jobs"; do
  rm -rf "$site/out"
  start=$(now)
  sh "$src/tools/cal_dump/cal_dump_days.sh" -s 2026-11-21 -e 2026-11-28 -o "$site/out" -j "$j" >/dev/null
  end=$(now)
  seconds=$(echo "$start $end" | awk '{ printf "%.2f", $2 - $1 }')
  echo "-j $j: $seconds s"
  [ "$j" -ne 1 ] || serial=$seconds
done
echo "$serial $seconds" | awk '{ printf "speed-up: %.2f\n", $1 / $2 }'
