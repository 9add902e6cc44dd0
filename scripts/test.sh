#!/usr/bin/env bash
# Runs every test: the native suite (ASan + UBSan) on the simulated machine,
# the fuzzers briefly,
# then the Windows lane under Wine (contract tests, whole passes of the real
# executable, and the same machine through both bindings).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --with-wine

cmake --preset linux-debug >/dev/null
cmake --build --preset linux-debug -j "${KPM_JOBS:-2}"

set +e
ASAN_OPTIONS=detect_leaks=1 ctest --preset linux-debug -j "$(nproc)" 2>&1 | tee build/linux-debug/ctest.out
native_rc=${PIPESTATUS[0]}
set -e
summary=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' build/linux-debug/ctest.out | tail -n 1)
total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$summary")
failed=$(sed -E 's/.*, ([0-9]+) tests failed.*/\1/' <<<"$summary")
echo "native: $((${total:-0} - ${failed:-0})) passed, ${failed:-0} failed"
if [ "$native_rc" -ne 0 ] || [ -z "$summary" ]; then
    echo "native tests FAILED"
    exit 1
fi

# The fuzzers, briefly, over their checked-in corpus (scripts/fuzz.sh --seconds N for longer runs).
if ! scripts/fuzz.sh --brief; then
    echo "fuzzers FAILED"
    exit 1
fi

scripts/wine-tests.sh
