#!/usr/bin/env bash
# wine-run.sh [--32] PROGRAM [ARGS...]
# Runs a Windows program under Wine: the emulator through which CMake and
# ctest run the cross builds' programs, 64-bit ones under wine64, 32-bit ones
# (--32) under the 32-bit loader (Debian's wine32:i386) in the same kind of
# 64-bit prefix, as a 32-bit program runs on 64-bit Windows. The prefix is a scratch one,
# KPM_WINEPREFIX or else "wineprefix" in the build tree above the working
# directory; it is created (wineboot --init) on first use. Wine's own
# diagnostics are off, the program's exit code is returned.
set -u
wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
if [ ! -x "$wine64" ]; then echo "wine-run: wine64 not available" >&2; exit 127; fi
export PATH="$PATH:$(dirname "$wine64")"
loader=$wine64
if [ "${1:-}" = --32 ]; then
  shift
  loader=$(dirname "$wine64")/wine
  if [ ! -x "$loader" ]; then echo "wine-run: no 32-bit Wine loader ($loader): wine32:i386 is not installed" >&2; exit 127; fi
fi

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
# The tests' servers are on loopback: Wine's URL library takes no proxy of the caller's.
unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY all_proxy ALL_PROXY

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
# The session (wineserver, services.exe and the services it starts) is
# started here, apart from the program and detached from the caller's output,
# and kept for a minute after the last program ends. Started by the program
# itself, its processes would hold the caller's pipes open (ctest would wait
# for them) and every run would pay the session's start-up again.
wineserver=$(dirname "$wine64")/wineserver
if "$wineserver" -p60 </dev/null >/dev/null 2>&1; then
  "$wine64" cmd.exe /c exit 0 </dev/null >/dev/null 2>&1
fi
exec "$loader" "$@"
