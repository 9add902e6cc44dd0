#!/usr/bin/env bash
# bench.sh [--quick] [--no-wine]
#
# Builds the release benchmarks in build/bench-release and runs them:
#   kpm_bench           the activity log: a whole small pass, 10,000 entries, the bare-append floor
#   kpm_download_bench  a 200 MB download through each download stand-in, against curl
#   kpm_pass_bench      a whole pass on a big managed computer (kpmdwld-sim as a child process):
#                       wall time, peak memory, the floor (its own log entries appended one
#                       open-append-close each through the same file system), and each
#                       dimension doubled (x_base: time against the base machine); a second
#                       floor, every write the pass made made again the same way (x_writes)
#   kpm_assessment_bench the third-party assessment: 5,000 products against 2,000 Uninstall
#                       keys, then both doubled
# then, when wine64 and MinGW-w64 are there, the 64-bit KPMDwld.exe (build/bench-mingw64):
# start to first log entry under Wine against a minimal MinGW program, and the
# big computer at a tenth of its size (300 updates) passed under Wine against
# its floor there (bench/wine-big-pass.sh).
# --quick runs the big pass at a tenth of its size, once. Figures are printed, never checked.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
quick=0 wine=1
for a in "$@"; do
  case "$a" in
    --quick) quick=1 ;;
    --no-wine) wine=0 ;;
    *) echo "usage: $0 [--quick] [--no-wine]" >&2; exit 2 ;;
  esac
done

build=build/bench-release
cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DKPM_BUILD_TESTS=OFF >/dev/null
cmake --build $build -j 2 --target kpm_bench kpm_download_bench kpm_pass_bench kpm_assessment_bench kpmdwld-sim kpm_big_machine kpm-sites

echo "== machine: $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p' | head -n 1), $(date -u +%Y-%m-%d)"
echo "== activity log"
$build/bench/kpm_bench
echo "== downloads (200 MB over loopback)"
$build/bench/kpm_download_bench
echo "== whole pass on a big managed computer"
if [ "$quick" = 1 ]; then export KPM_BENCH_SCALE=10 KPM_BENCH_RUNS=1; fi
$build/bench/kpm_pass_bench --benchmark_counters_tabular=true
echo "== third-party assessment"
$build/bench/kpm_assessment_bench --benchmark_counters_tabular=true

[ "$wine" = 1 ] || exit 0
if ! command -v x86_64-w64-mingw32-g++ >/dev/null || ! { command -v wine64 >/dev/null || [ -x /usr/lib/wine/wine64 ]; }; then
  echo "== Wine: SKIPPED (no wine64 or no MinGW-w64)"
  exit 0
fi
echo "== KPMDwld.exe under Wine"
mingw=build/bench-mingw64
cmake -S . -B $mingw -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw64.cmake -DCMAKE_BUILD_TYPE=Release \
  -DKPM_BUILD_BENCH=OFF -DKPM_BUILD_TESTS=OFF >/dev/null
cmake --build $mingw -j 2 --target KPMDwld kpm_standins_com kpm_standin_kencdec kpm_standin_kdowfile
x86_64-w64-mingw32-g++ -O2 -static -Wall -Wextra -Werror bench/append_floor.cpp -o $mingw/append_floor.exe
PATH=/usr/lib/wine:$PATH bench/wine-start.sh --exe $mingw/platform/win32/KPMDwld.exe \
  --standins $mingw/standins/com/KPMStandins.dll --cipher $mingw/standins/com/KEncDec.dll \
  --kdowfile $mingw/standins/com/KDowFile.dll --floor $mingw/append_floor.exe --work /tmp/bench-wine-start
echo "== the big pass under Wine"
PATH=/usr/lib/wine:$PATH bench/wine-big-pass.sh --exe $mingw/platform/win32/KPMDwld.exe \
  --standins $mingw/standins/com/KPMStandins.dll --cipher $mingw/standins/com/KEncDec.dll \
  --kdowfile $mingw/standins/com/KDowFile.dll --floor $mingw/append_floor.exe \
  --maker $build/bench/kpm_big_machine --sites $build/sites/kpm-sites --sim $build/kpmdwld-sim \
  --work /tmp/bench-wine-big
