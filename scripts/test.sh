#!/usr/bin/env bash
# Runs every test: the native suite (ASan + UBSan) on the simulated machine,
# then the Windows lane under Wine (contract tests and whole passes of the
# real executable).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --with-wine

cmake --preset linux-debug >/dev/null
cmake --build --preset linux-debug -j "$(nproc)"
ASAN_OPTIONS=detect_leaks=1 ctest --preset linux-debug -j "$(nproc)"

if [ -x scripts/wine-tests.sh ]; then
    scripts/wine-tests.sh
fi
