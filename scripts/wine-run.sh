#!/usr/bin/env bash
# wine-run.sh PROGRAM [ARGS...]
# Runs a Windows program under wine64: the emulator through which CMake and
# ctest run the 64-bit cross build's programs. The prefix is a scratch one,
# KPM_WINEPREFIX or else "wineprefix" in the build tree above the working
# directory; it is created (wineboot --init) on first use. Wine's own
# diagnostics are off, the program's exit code is returned.
set -u
wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
if [ ! -x "$wine64" ]; then echo "wine-run: wine64 not available" >&2; exit 127; fi
export PATH="$PATH:$(dirname "$wine64")"

if [ -z "${KPM_WINEPREFIX:-}" ]; then
  d=$PWD
  while [ "$d" != / ] && [ ! -f "$d/CMakeCache.txt" ]; do d=$(dirname "$d"); done
  if [ ! -f "$d/CMakeCache.txt" ]; then
    echo "wine-run: no CMake build tree above $PWD; set KPM_WINEPREFIX" >&2
    exit 2
  fi
  KPM_WINEPREFIX=$d/wineprefix
fi
export WINEPREFIX=$KPM_WINEPREFIX
export WINEDEBUG=-all
# Dates and times in English (United States), whatever the caller's locale.
export LC_ALL=C.UTF-8
# No prompts to install Mono or Gecko: the program needs neither.
export WINEDLLOVERRIDES="mscoree,mshtml="

if [ ! -f "$WINEPREFIX/.kpm-ready" ]; then
  mkdir -p "$WINEPREFIX"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/.kpm-ready" ]; then
      "$wine64" wineboot --init >/dev/null 2>&1 && "$(dirname "$wine64")/wineserver" -w
      touch "$WINEPREFIX/.kpm-ready"
    fi
  ) 9>"$WINEPREFIX.lock"
fi
# A server that outlives the program by a minute, started here with no ties
# to the caller's output: one started by the program itself would hold ctest's
# pipe open for its default linger time, and each run would pay the server's
# start-up again.
"$(dirname "$wine64")/wineserver" -p60 </dev/null >/dev/null 2>&1 || true
exec "$wine64" "$@"
