#!/bin/sh
# Kills serial_ingest -z's children many times (default 500) and reports the
# restarts counted, zombies left, and the supervisor's descriptors and
# resident memory before and after.  Takes a little over a second per kill.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target serial_ingest Ingest daemon_soak
build/bench/daemon_soak build/ingest/serial_ingest build/tests/standin "${1:-500}" "${2:-4}"
