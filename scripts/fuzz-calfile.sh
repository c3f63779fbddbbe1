#!/bin/sh
# Builds the calibration-file fuzzer with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs it for about a minute (FUZZ_SECONDS).
set -eu
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
dir=build-fuzz
command -v clang++ >/dev/null || { echo "fuzz-calfile: clang++ is not installed" >&2; exit 1; }
cmake -S . -B "$dir" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHERON_SANITIZE=ON -DHERON_BENCH=OFF \
  -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build "$dir" -j2 --target calfile_fuzz
corpus="$dir/calfile_corpus"
mkdir -p "$corpus"
cp tests/fuzz/calfile_corpus/* "$corpus"/
# Standard error is closed for the runs: every rejected input prints its
# syntax error there.
"$dir/tests/calfile_fuzz" -max_total_time="$seconds" -close_fd_mask=2 -max_len=4096 "$corpus"
