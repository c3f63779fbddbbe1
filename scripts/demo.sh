#!/bin/sh
# Builds serial_ingest and shows it at work without hardware: an example
# instrument stream from the example site is played into a pseudo-terminal
# and dumped in hexadecimal, then in octal and characters.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target serial_ingest ptyfeed
stream=examples/site/demo/sonic_ascii.txt
echo "== serial_ingest -H on a pseudo-terminal fed with $stream"
build/ingest/ptyfeed "$stream" build/ingest/serial_ingest -B 9600 -L -H -d %s || true
echo
echo "== serial_ingest -O on the same stream"
build/ingest/ptyfeed "$stream" build/ingest/serial_ingest -B 9600 -L -O -d %s || true
echo
