#!/usr/bin/env bash
# wine-tests.sh: the Windows builds of KPMDwld and their checks.
#   1. mingw32-release: the shipping 32-bit KPMDwld.exe, its imports and the
#      stand-ins' exports
#   2. mingw64-release: the 64-bit build with the contract tests, its imports
#   3. for each build Wine can run (64-bit under wine64; 32-bit, built again
#      with its tests as mingw32-tests, under the 32-bit loader in a 64-bit
#      prefix): the contract and binding tests, whole passes and twenty starts
#      at once, the download passes (online and offline), and the demo machine
#      passed through the real exe and the simulated machine (the two agree)
# Prints a summary, each line naming its build; exits non-zero when anything
# failed. Where wine64 is not available (and cannot be installed) the builds
# and import checks still run and the Wine part says SKIPPED; where only the
# 32-bit loader is missing (wine32:i386 does not always install), the 32-bit
# steps say SKIPPED with the reason and the rest runs.
# Each step's output is in build/wine-tests/<step>.log.
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
logs=$root/build/wine-tests
mkdir -p "$logs"
jobs=${KPM_JOBS:-2}

results=()
failed=0
started=$SECONDS

# step NAME COMMAND...: runs a step, logs it, records PASS/FAIL with its time.
step() {
  local name=$1; shift
  local log=$logs/$(echo "$name" | tr ' /' '__').log t0=$SECONDS
  printf '%-52s ' "$name"
  if "$@" >"$log" 2>&1; then
    echo "PASS ($((SECONDS - t0)) s)"
    results+=("PASS  $name")
  else
    echo "FAIL ($((SECONDS - t0)) s), log: ${log#$root/}"
    tail -n 40 "$log" | sed 's/^/    | /'
    results+=("FAIL  $name")
    failed=1
  fi
}
skip() {
  printf '%-52s SKIPPED: %s\n' "$1" "$2"
  results+=("SKIP  $1 ($2)")
}

for cc in i686-w64-mingw32-g++-posix x86_64-w64-mingw32-g++-posix; do
  if ! command -v "$cc" >/dev/null; then
    echo "SKIPPED: MinGW-w64 not available ($cc)"
    exit 0
  fi
done

# wine64 lives in /usr/lib/wine on Debian. Installed when missing and this
# is a Debian system we may install on.
find_wine() { command -v wine64 || { [ -x /usr/lib/wine/wine64 ] && echo /usr/lib/wine/wine64; }; }
wine64=$(find_wine)
if [ -z "$wine64" ] && [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null && [ -z "${KPM_NO_INSTALL:-}" ]; then
  echo "wine64 is missing: installing it (apt-get install wine64)"
  timeout 900 apt-get install -y --no-install-recommends wine64 >"$logs/install-wine.log" 2>&1 || true
  wine64=$(find_wine)
fi

pe_check() {  # OBJDUMP FILE FORMAT: the PE format and the GUI subsystem of an executable
  local objdump=$1 file=$2 format=$3
  "$objdump" -f "$file" | grep -q "file format $format" || { echo "$file is not $format"; return 1; }
  "$objdump" -p "$file" | grep -q 'Subsystem.*Windows GUI' || { echo "$file is not a GUI-subsystem program"; return 1; }
  echo "$file: $format, Windows GUI subsystem"
}

build32=build/mingw32 build64=build/mingw64
step "build mingw32-release (shipping KPMDwld.exe)" \
  sh -c "cmake --preset mingw32-release && cmake --build --preset mingw32-release -j $jobs"
check32() {
  "$root/scripts/check-imports.sh" i686-w64-mingw32-objdump $build32/platform/win32/KPMDwld.exe \
    $build32/platform/win32/KPMDwld-check.exe &&
    pe_check i686-w64-mingw32-objdump $build32/platform/win32/KPMDwld.exe pei-i386
}
step "32-bit KPMDwld.exe: PE32, GUI, system DLLs only" check32
# The maker's libraries are looked up by plain names (GetProcAddress), so the
# 32-bit stand-ins export their __stdcall functions undecorated.
exports32() {
  local dir=$build32/standins/com status=0 dll names
  "$root/scripts/check-imports.sh" i686-w64-mingw32-objdump $dir/KEncDec.dll $dir/KDowFile.dll $dir/KGnMD5.dll \
    $dir/KPMStandins.dll || status=1
  for exports in "KEncDec.dll DecryptData EncryptData" "KDowFile.dll AsyncDownloadFile GetDownloadFinalStatus" \
              "KGnMD5.dll KGetMD5 KGetMD5WBlock"; do
    set -- $exports
    dll=$1; shift
    names=$(i686-w64-mingw32-objdump -p "$dir/$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
      sed -n 's/^[[:space:]]*\[ *[0-9]*\] //p' | sort | tr '\n' ' ')
    if [ "$names" = "$* " ]; then echo "$dll exports: $names"; else echo "$dll exports '$names', expected '$* '"; status=1; fi
  done
  return $status
}
step "32-bit maker stand-ins: undecorated exports" exports32
step "build mingw64-release (+ contract tests)" \
  sh -c "cmake --preset mingw64-release && cmake --build --preset mingw64-release -j $jobs"
step "64-bit KPMDwld.exe and stand-ins: system DLLs only" \
  "$root/scripts/check-imports.sh" x86_64-w64-mingw32-objdump $build64/platform/win32/KPMDwld.exe \
  $build64/platform/win32/KPMDwld-check.exe \
  $build64/standins/com/KPMStandins.dll $build64/standins/com/KEncDec.dll \
  $build64/standins/com/KDowFile.dll $build64/standins/com/KGnMD5.dll

# The 32-bit loader (Debian's wine32:i386) runs the shipping build's own
# tests; scripts/install-deps.sh --with-wine installs it where it can, and
# says why not in build/wine32-unavailable.txt.
wine32=""
if [ -n "$wine64" ] && [ -x "$(dirname "$wine64")/wine" ]; then wine32=$(dirname "$wine64")/wine; fi
why32="wine32:i386 is not installed"
[ -s build/wine32-unavailable.txt ] && why32="wine32:i386 could not be installed: $(head -n 1 build/wine32-unavailable.txt)"

# lane BITS BUILD_DIR: what runs under Wine for one build.
lane() {
  local bits=$1 dir=$2 tag="($1-bit)"
  local prefix=$root/$dir/wineprefix
  WINEPREFIX=$prefix wineserver -k >/dev/null 2>&1 || true
  rm -rf "$prefix" "$prefix.lock"
  step "contract and binding tests $tag" \
    ctest --no-tests=error --test-dir $dir -R '^(contract|win32)\.' -j 1 --output-on-failure --timeout 300
  WINEPREFIX=$prefix wineserver -k >/dev/null 2>&1 || true
  step "whole passes, twenty starts at once $tag" \
    ctest --no-tests=error --test-dir $dir -R '^wine\.whole_pass$' --output-on-failure -V
  # Downloads from the loopback sites server, a native program (scripts/test.sh builds it first).
  if [ -x "${KPM_SITES:-build/linux-debug/sites/kpm-sites}" ]; then
    step "download pass, both pipelines $tag" \
      ctest --no-tests=error --test-dir $dir -R '^wine\.download_pass$' --output-on-failure -V
    step "download pass without Internet (offline scan) $tag" \
      ctest --no-tests=error --test-dir $dir -R '^wine\.download_pass_offline$' --output-on-failure -V
  else
    skip "download passes $tag" "no native kpm-sites built"
  fi
  step "checker: the Windows report is the Linux one $tag" \
    "$root/scripts/wine-check.sh" --exe $dir/platform/win32/KPMDwld-check.exe \
    --cipher $dir/standins/com/KEncDec.dll --work "$logs/check-$bits"
  # The same machine on both sides: needs the native runner (scripts/test.sh builds it first).
  if [ -n "$sim_bin" ]; then
    step "demo machine: Wine pass matches the simulated pass $tag" \
      "$root/scripts/wine-compare.sh" --exe $dir/platform/win32/KPMDwld.exe \
      --standins $dir/standins/com/KPMStandins.dll --cipher $dir/standins/com/KEncDec.dll \
      --kdowfile $dir/standins/com/KDowFile.dll --sim "$sim_bin" --work "$logs/compare-$bits"
  else
    skip "demo machine: Wine pass matches the simulated pass $tag" "no native kpmdwld-sim built"
  fi
}

sim_bin=${KPM_SIM:-}
for candidate in build/linux-debug/kpmdwld-sim build/linux-release/kpmdwld-sim; do
  [ -z "$sim_bin" ] && [ -x "$candidate" ] && sim_bin=$candidate
done
if [ -z "$wine64" ]; then
  skip "Wine steps (64-bit)" "wine64 not available"
  skip "Wine steps (32-bit)" "wine64 not available"
  echo "SKIPPED: wine64 not available"
else
  export PATH="$PATH:$(dirname "$wine64")"
  lane 64 $build64
  if [ -n "$wine32" ]; then
    step "build mingw32-tests (32-bit, + contract tests)" \
      sh -c "cmake --preset mingw32-tests && cmake --build --preset mingw32-tests -j $jobs"
    lane 32 build/mingw32-tests
  else
    skip "Wine steps (32-bit)" "$why32"
    echo "SKIPPED (32-bit): $why32"
  fi
fi

echo
echo "== Windows build summary ($((SECONDS - started)) s)"
printf '  %s\n' "${results[@]}"
npass=$(printf '%s\n' "${results[@]}" | grep -c '^PASS')
nfail=$(printf '%s\n' "${results[@]}" | grep -c '^FAIL')
nskip=$(printf '%s\n' "${results[@]}" | grep -c '^SKIP')
[ $failed -ne 0 ] && echo "wine-tests: FAILED"
if [ "$nskip" -gt 0 ]; then
  echo "wine: $npass passed, $nfail failed, $nskip skipped"
else
  echo "wine: $npass passed, $nfail failed"
fi
[ $failed -eq 0 ]
