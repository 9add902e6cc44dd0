#!/usr/bin/env bash
# fuzz.sh [--seconds N] [--brief] [--merge] [HARNESS ...]
#
# Builds the libFuzzer harnesses (fuzz/, clang with ASan and UBSan) in
# build/fuzz and runs each for N seconds (default 600: a release check) on a
# working copy of its checked-in corpus (fuzz/corpus/<harness>). --brief (CI)
# replays the checked-in corpus and fuzzes 10 seconds each. New inputs that
# grow coverage stay in build/fuzz/corpus; a crash leaves its input in
# build/fuzz/findings and fails the script. --merge, instead of fuzzing, adds
# to fuzz/corpus the inputs of build/fuzz/corpus that reach code the
# checked-in corpus does not (libFuzzer's -merge=1): a release run's finds
# then become CI's replay. Without names, every harness runs.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
seconds=600
merge=0
harnesses=()
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds) seconds=$2; shift 2 ;;
    --brief) seconds=10; shift ;;
    --merge) merge=1; shift ;;
    -h|--help) sed -n 2,13p "$0"; exit 0 ;;
    *) harnesses+=("$1"); shift ;;
  esac
done
command -v clang++ >/dev/null || { echo "SKIPPED: clang++ not available"; exit 0; }

build=$root/build/fuzz
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_COMPILER=clang -DKPM_SANITIZE=ON -DKPM_BUILD_FUZZ=ON -DKPM_BUILD_TESTS=OFF -DKPM_BUILD_BENCH=OFF \
  >"$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j "${KPM_JOBS:-2}" >"$build.build.log" 2>&1 || { tail -n 40 "$build.build.log"; exit 1; }

if [ ${#harnesses[@]} -eq 0 ]; then
  for f in fuzz/*_fuzz.cpp; do harnesses+=("$(basename "$f" .cpp)"); done
fi
mkdir -p "$build/findings"
# The harnesses' simulated machines live under TMPDIR; memory-backed is faster.
[ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ] && export TMPDIR=/dev/shm
failed=0
for h in "${harnesses[@]}"; do
  seeds=fuzz/corpus/$h work=$build/corpus/$h
  mkdir -p "$work" "$seeds"
  printf '%-24s ' "$h"
  if [ "$merge" = 1 ]; then
    before=$(ls "$seeds" | wc -l)
    ASAN_OPTIONS=detect_leaks=0 "$build/fuzz/$h" -merge=1 -timeout=20 -rss_limit_mb=2048 "$seeds" "$work" \
      >"$build/$h.merge.log" 2>&1 || { echo "merge FAILED (log: build/fuzz/$h.merge.log)"; failed=1; continue; }
    echo "merged: $before + $(($(ls "$seeds" | wc -l) - before)) inputs"
    continue
  fi
  # Leaks are checked by the test suite; here only crashes, hangs and memory blow-ups count.
  if ASAN_OPTIONS=detect_leaks=0 "$build/fuzz/$h" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
       -artifact_prefix="$build/findings/$h-" -print_final_stats=1 "$work" "$seeds" >"$build/$h.log" 2>&1; then
    echo "ok: $(grep -E '^stat::number_of_executed_units' "$build/$h.log" | awk '{print $2}') runs, corpus $(ls "$work" | wc -l) + $(ls "$seeds" | wc -l) seeds"
  else
    echo "FAILED (log: build/fuzz/$h.log)"
    grep -E 'ERROR|SUMMARY|Test unit written' "$build/$h.log" | head -n 5 | sed 's/^/    /'
    failed=1
  fi
done
exit $failed
