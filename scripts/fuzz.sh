#!/bin/sh
# Builds every libFuzzer target under tests/fuzz with clang, AddressSanitizer
# and UndefinedBehaviorSanitizer, and runs each for FUZZ_SECONDS (default 20).
# Starting inputs of target <name>_fuzz, when it has any, are in tests/fuzz/<name>_corpus.
#   sh scripts/fuzz.sh [BUILD_DIR]
# BUILD_DIR (default build-fuzz) is configured here unless it already is.
set -eu
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-20}
dir=${1:-build-fuzz}
command -v clang++ >/dev/null || { echo "fuzz: clang++ is not installed" >&2; exit 1; }
if [ ! -f "$dir/CMakeCache.txt" ]; then
  cmake -S . -B "$dir" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHERON_SANITIZE=ON -DHERON_BENCH=OFF \
    -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
fi
targets=$(sed -n 's/^heron_fuzz(\([a-z_0-9]*\).*/\1_fuzz/p' tests/CMakeLists.txt)
[ -n "$targets" ] || { echo "fuzz: no targets" >&2; exit 1; }
# shellcheck disable=SC2086
cmake --build "$dir" -j "$(nproc)" --target $targets
for t in $targets; do
  corpus="$dir/${t}_corpus"
  mkdir -p "$corpus"
  src="tests/fuzz/${t%_fuzz}_corpus"
  if [ -d "$src" ]; then cp "$src"/* "$corpus"/; fi
  echo "== $t for $seconds s"
  # Standard error is closed during the run: rejected inputs report there.
  "$dir/tests/$t" -max_total_time="$seconds" -close_fd_mask=2 -max_len=4096 "$corpus"
done
