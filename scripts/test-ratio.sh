#!/usr/bin/env bash
# Prints the size of the tests against the rest of the code: non-blank lines
# of code (C++, shell, Python, CMake) under tests/, and everywhere else but
# data (the fuzz corpus, examples, scenario folders) and docs.
# Usage: scripts/test-ratio.sh [--by-folder]
set -euo pipefail
cd "$(dirname "$0")/.."
files() { git ls-files --cached --others --exclude-standard | grep -E '\.(c|cc|cpp|h|hpp|sh|py|cmake)$|(^|/)CMakeLists\.txt$' |
          grep -vE '^(fuzz/corpus|examples|build|scratch)/'; }
count() { xargs -d '\n' -r cat -- | grep -c '[^[:space:]]' || true; }
tests=$(files | grep -E '^tests/' | count)
rest=$(files | grep -vE '^tests/' | count)
awk -v t="$tests" -v r="$rest" 'BEGIN { printf "tests: %d non-blank lines of code; everything else: %d; tests/rest = %.3f (target at most 0.333)\n", t, r, t / r }'
if [ "${1:-}" = "--by-folder" ]; then
    files | awk -F/ '{ print ($1 == "tests" && NF > 2) ? $1 "/" $2 : $1 }' | sort -u | while read -r d; do
        printf '  %-22s %6d\n' "$d" "$(files | grep -E "^$d(/|$)" | count)"
    done
fi
