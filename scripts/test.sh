#!/usr/bin/env bash
# Builds the project and runs the whole test suite twice: a g++ build with
# warnings as errors, then a clang build under AddressSanitizer and
# UndefinedBehaviorSanitizer (any report fails the run), and a short fuzz run of
# each fuzz target from its corpus; last, that the sources are formatted.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

cmake -S . -B build/gcc -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DTOLVA_WERROR=ON -DTOLVA_BUILD_BENCH=ON
cmake --build build/gcc -j "$jobs"
ctest --test-dir build/gcc --output-on-failure -j "$jobs"

cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTOLVA_WERROR=ON -DTOLVA_SANITIZE=ON -DTOLVA_FUZZ=ON
cmake --build build/sanitize -j "$jobs"

# A short fuzz run per target; new inputs go to a scratch folder, so the
# checked-in corpus stays as it is.
fuzz_seconds=${TOLVA_FUZZ_SECONDS:-20}
for target in profile_fuzz opcode_fuzz export_fuzz picture_fuzz; do
  scratch=$(mktemp -d)
  # Every target runs with leak detection on; the picture reader's
  # suppressions cover a leak inside a decoder library, not ours.
  ASAN_OPTIONS=abort_on_error=1:detect_leaks=1 \
  LSAN_OPTIONS=suppressions=$PWD/fuzz/picture_fuzz.supp \
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    build/sanitize/fuzz/$target -max_total_time="$fuzz_seconds" -print_final_stats=0 \
      "$scratch" "fuzz/corpus/$target" 2>&1 | tail -n 3
  rm -rf "$scratch"
done
echo "fuzz: 4 targets ran ${fuzz_seconds}s each without a crash"

ASAN_OPTIONS=abort_on_error=1:detect_leaks=1 \
UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  ctest --test-dir build/sanitize --output-on-failure -j "$jobs"

scripts/format.sh --check
