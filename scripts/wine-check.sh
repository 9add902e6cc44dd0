#!/usr/bin/env bash
# wine-check.sh --exe KPMDwld-check.exe --cipher KEncDec.dll [--work DIR]
#
# The Windows checker on the same machines as the Linux one: each case of
# tests/checker marked wine=yes becomes a Wine prefix (the machine's drive C:,
# its registry, the checker beside KPMDwld.exe, the cipher library beside it)
# and its report must be the case's expected.txt, byte for byte, with the
# same exit code; the program folder must be left as it was.
# Exit status: 0 the same, 1 they differ, 77 skipped (no wine64).
#
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/wine-agent.sh"
exe="" cipher="" work=""
take_options "exe cipher work" "$@"
require_files "$exe" "$cipher"
find_wine64
pick_loader "$exe"
[ -n "$work" ] || work=$(mktemp -d /tmp/kpm-wine-check.XXXXXX)
work=$(realpath -m "$work")
rm -rf "$work" && mkdir -p "$work"
export WINEDEBUG=-all LC_ALL=C.UTF-8 WINEDLLOVERRIDES="mscoree,mshtml="
export WINEPREFIX=$work/prefix
mkdir -p "$WINEPREFIX"
"$wineserver" -p300 </dev/null >/dev/null 2>&1
trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT
boot_prefix
fingerprint() { (cd "$1" && find . -type f -print0 | sort -z | xargs -0 md5sum | md5sum); }

failures=0 count=0 imported=""
for dir in "$root"/tests/checker/*/; do
  field() { sed -n "s/^$1=//p" "$dir/case.txt" | tr -d '\r'; }
  [ "$(field wine)" = yes ] || continue
  name=$(basename "$dir") count=$((count + 1))
  machine=$work/$name
  cp -r "$root/$(field machine)" "$machine"
  [ -d "$dir/machine" ] && cp -r "$dir/machine/." "$machine/"
  # The machine's drive C: in place of the last case's agent folder.
  rm -rf "$WINEPREFIX/drive_c/Program Files/VORN"
  cp -r "$machine/drives/C/." "$WINEPREFIX/drive_c/"
  exe_win=$(sed -n 's/^ExePath=//p' "$machine/machine.ini" | tr -d '\r')
  program_win=${exe_win%\\*}
  program=$WINEPREFIX/drive_c/$(echo "${program_win#C:\\}" | tr '\\' /)
  cp "$cipher" "$program/KEncDec.dll"
  cp "$exe" "$program/KPMDwld-check.exe"
  if [ "$imported" != "$(md5sum <"$machine/registry.reg")" ]; then
    import_reg "$machine/registry.reg" 'HKEY_LOCAL_MACHINE\SOFTWARE\Wow6432Node\VORNOD' ||
      { echo "FAIL $name: the registry did not import"; failures=$((failures + 1)); continue; }
    imported=$(md5sum <"$machine/registry.reg")
  fi
  before=$(fingerprint "$program")
  # shellcheck disable=SC2046
  (cd "$program" && timeout 300 "$winexe" "$program_win\\KPMDwld-check.exe" $(field args)) \
    >"$work/$name.out" 2>"$work/$name.err"
  rc=$?
  problems=()
  [ "$rc" = "$(field exit)" ] || problems+=("exit code $rc, expected $(field exit)")
  diff -u "$dir/expected.txt" "$work/$name.out" >"$work/$name.diff" ||
    problems+=("the Windows report differs from the Linux one (- Linux, + Windows):" "$(head -n 40 "$work/$name.diff")")
  [ "$(fingerprint "$program")" = "$before" ] || problems+=("the program folder changed")
  if [ ${#problems[@]} -eq 0 ]; then
    echo "ok   $name ($bits-bit)"
  else
    echo "FAIL $name ($bits-bit)"; printf '     %s\n' "${problems[@]}"
    failures=$((failures + 1))
  fi
done
"$wineserver" -k >/dev/null 2>&1 || true
echo "wine-check: $count cases, $failures failed"
[ "$failures" = 0 ] || { echo "work folder kept: $work"; exit 1; }
drop_prefixes "$WINEPREFIX"
rm -rf "$work"
