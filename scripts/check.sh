#!/bin/sh
# Builds warning-free (-Werror) and runs the whole suite twice: once plain and
# once under AddressSanitizer and UndefinedBehaviorSanitizer; then runs each
# fuzz target briefly (FUZZ_SECONDS, default 20) under the same sanitizers.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
jobs=$(nproc)
for variant in plain asan; do
  dir=build-check-$variant
  san=OFF
  [ "$variant" = asan ] && san=ON
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHERON_WERROR=ON -DHERON_SANITIZE=$san >/dev/null
  cmake --build "$dir" -j "$jobs"
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir "$dir" --output-on-failure -j "$jobs"
done
sh scripts/fuzz.sh >build-check-fuzz.log 2>&1 || { tail -n 40 build-check-fuzz.log; exit 1; }
grep -E '^(== |Done )' build-check-fuzz.log
echo "all tests passed (plain and sanitized) and the fuzz targets found nothing"
