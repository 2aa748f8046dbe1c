#!/usr/bin/env bash
# Fuzz campaigns: scripts/fuzz.sh [SECONDS] [TARGET...]
#
# Runs each target (all of them by default, as listed by the build in
# build/sanitize/fuzz/fuzz_targets.txt) for SECONDS (default 600) under
# AddressSanitizer, UndefinedBehaviorSanitizer and leak detection, starting
# from its checked-in corpus and regression inputs. New corpus entries go to
# build/fuzz/corpus/TARGET, which later campaigns start from too; the tree
# is never written. A finding (crash, leak, hang, out of memory) is left in
# build/fuzz/artifacts/TARGET/ and minimised next to it (minimised-*); the
# run's output is in build/fuzz/logs/TARGET.log. Prints
# executions and findings per target; exits 1 when anything was found.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=600
if [[ $# -gt 0 && $1 =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi

build=build/sanitize
if [[ ! -f $build/build.ninja ]]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTOLVA_WERROR=ON \
    -DTOLVA_SANITIZE=ON -DTOLVA_FUZZ=ON
fi
# The list of targets is written when the build is configured.
cmake -S . -B "$build" >/dev/null
mapfile -t all < "$build/fuzz/fuzz_targets.txt"
targets=("$@")
[[ ${#targets[@]} -eq 0 ]] && targets=("${all[@]}")
for t in "${targets[@]}"; do
  [[ " ${all[*]} " == *" $t "* ]] || { echo "fuzz.sh: no fuzz target named $t (known: ${all[*]})" >&2; exit 2; }
done
cmake --build "$build" -j 2 --target "${targets[@]}"

export ASAN_OPTIONS=abort_on_error=1:detect_leaks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1

found=0
for t in "${targets[@]}"; do
  scratch=build/fuzz/corpus/$t
  artifacts=build/fuzz/artifacts/$t
  log=build/fuzz/logs/$t.log
  mkdir -p "$scratch" "$artifacts" build/fuzz/logs
  inputs=("fuzz/corpus/$t")
  [[ -d fuzz/regressions/$t ]] && inputs+=("fuzz/regressions/$t")
  # Findings only: libFuzzer also leaves slow-unit-* there, which are not.
  findings() { find "$artifacts" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | sort; }
  before=$(findings)
  # A hang is an input that takes more than 20 s; the run stops at the first finding.
  # A target's own suppressions name faults inside a library it drives, not
  # ours: leaks (NAME.supp) and what the string interceptors see (NAME.asan.supp).
  lsan=""
  [[ -f fuzz/$t.supp ]] && lsan=suppressions=$PWD/fuzz/$t.supp
  asan=$ASAN_OPTIONS
  [[ -f fuzz/$t.asan.supp ]] && asan=$asan:suppressions=$PWD/fuzz/$t.asan.supp
  status=0
  LSAN_OPTIONS=$lsan ASAN_OPTIONS=$asan "$build/fuzz/$t" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
    -artifact_prefix="$artifacts/" "$scratch" "${inputs[@]}" >"$log" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  new=$(comm -13 <(echo "$before") <(findings))
  if [[ -z $new && $status -ne 0 ]]; then
    echo "$t: the fuzzer stopped with status $status and left no input; see $log"
    found=1
    continue
  fi
  count=0
  for a in $new; do
    count=$((count + 1))
    LSAN_OPTIONS=$lsan ASAN_OPTIONS=$asan "$build/fuzz/$t" -minimize_crash=1 -max_total_time=60 \
      -exact_artifact_path="$artifacts/minimised-$(basename "$a")" "$a" >>"build/fuzz/logs/$t-minimise.log" 2>&1 || true
  done
  echo "$t: ${runs:-0} executions in ${seconds}s, $count findings${new:+ (see $artifacts; the log is $log)}"
  [[ $count -gt 0 ]] && found=1
done
exit $found
