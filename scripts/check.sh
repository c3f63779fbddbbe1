#!/bin/sh
# Builds warning-free (-Werror) and runs the whole suite twice: once plain
# (g++) and once under AddressSanitizer and UndefinedBehaviorSanitizer
# (clang, with the coverage hooks of the fuzzer); then runs each fuzz target
# of that second build briefly (FUZZ_SECONDS, default 20).
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
jobs=$(nproc)
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

cmake -S . -B build-check-plain -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHERON_WERROR=ON >/dev/null
cmake --build build-check-plain -j "$jobs"
ctest --test-dir build-check-plain --output-on-failure -j "$jobs"

cmake -S . -B build-check-asan -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHERON_SANITIZE=ON -DHERON_BENCH=OFF \
  -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build build-check-asan -j "$jobs"
ctest --test-dir build-check-asan --output-on-failure -j "$jobs"

sh scripts/fuzz.sh build-check-asan >build-check-fuzz.log 2>&1 || { tail -n 40 build-check-fuzz.log; exit 1; }
grep -E '^(== |Done )' build-check-fuzz.log
echo "all tests passed (plain and sanitized) and the fuzz targets found nothing"
