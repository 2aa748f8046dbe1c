#!/usr/bin/env bash
# Builds the project and runs the whole test suite twice: a g++ build with
# warnings as errors, then a clang build under AddressSanitizer and
# UndefinedBehaviorSanitizer (any report fails the run), and a short fuzz run of
# each fuzz target from its corpus, with leak detection; last, that the
# sources are formatted.
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

# The sanitized suite replays every fuzz target's corpus and regression
# inputs; then each target in the build's list (build/sanitize/fuzz/
# fuzz_targets.txt, so a new target joins by its tolva_fuzz line alone) runs
# for a short fixed time from them, leak detection on. New inputs go to
# build/fuzz/, never into the tree.
ASAN_OPTIONS=abort_on_error=1:detect_leaks=1 \
UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  ctest --test-dir build/sanitize --output-on-failure -j "$jobs"

scripts/fuzz.sh "${TOLVA_FUZZ_SECONDS:-15}"

scripts/format.sh --check
