#!/usr/bin/env bash
# wine-start.sh --exe KPMDwld.exe --standins KPMStandins.dll --cipher KEncDec.dll
#               --kdowfile KDowFile.dll --floor append_floor.exe --work DIR [--runs N]
#
# Start to first log entry under wine64: the real KPMDwld.exe on the demo
# machine (turned into a Wine prefix as scripts/wine-compare.sh does), against
# a minimal MinGW program that writes one line (append_floor.exe LOG). Each
# run is timed from the launch until the file holds an entry line; the
# prefix's server stays up between runs, as it would on a machine that runs
# programs all day. Prints one line per program: best and median of N runs.
# Exit status: 0 done, 2 usage, 77 skipped (no wine64).
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/wine-agent.sh"
exe="" standins="" cipher="" kdowfile="" floor="" work="" runs=5
take_options "exe standins cipher kdowfile floor work runs" "$@"
require_files "$exe" "$standins" "$cipher" "$kdowfile" "$floor"
[ -n "$work" ] || { echo "wine-start: --work DIR is required" >&2; exit 2; }
find_wine64
work=$(realpath -m "$work")
rm -rf "$work" && mkdir -p "$work"
export WINEDEBUG=-all LC_ALL=C.UTF-8 WINEDLLOVERRIDES="mscoree,mshtml=" WINEPREFIX=$work/prefix

# The demo machine as a prefix: files, registry, the executable, the stand-ins;
# no host it could look up (the data center is a closed loopback port).
demo=$root/examples/demo-machine
install_rel='Program Files/VORN/VORNMobile'
prog="$WINEPREFIX/drive_c/$install_rel/BaseComponents/PatchManagement"
mkdir -p "$WINEPREFIX"
"$wineserver" -p300 </dev/null >/dev/null 2>&1
trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT
"$wine64" wineboot --init >/dev/null 2>&1
cp -r "$demo/drives/C/." "$WINEPREFIX/drive_c/"
cp "$exe" "$prog/KPMDwld.exe"
cp "$cipher" "$prog/KEncDec.dll"
cp "$kdowfile" "$prog/KDowFile.dll"
cp "$floor" "$WINEPREFIX/drive_c/append_floor.exe"
mkdir -p "$WINEPREFIX/drive_c/KPMStandins"
cp "$standins" "$WINEPREFIX/drive_c/KPMStandins/KPMStandins.dll"
"$wine64" regsvr32 -s 'C:\KPMStandins\KPMStandins.dll' >/dev/null 2>&1
printf '[Network]\r\n' >"$WINEPREFIX/drive_c/KPMStandins/network.ini"
sed -i 's#^DownLoadSite=.*#DownLoadSite=http://127.0.0.1:9/updates\r#' "$WINEPREFIX/drive_c/$install_rel/VORNMobile.ini"
cp "$demo/registry.reg" "$work/demo.reg"
import_reg "$work/demo.reg" 'HKLM\SOFTWARE\Wow6432Node\VORNOD' || exit 1

# Milliseconds from the launch of "$@" until $log holds a line that is not a
# header line; the program is then waited for.
first_entry() {
  local log=$1; shift
  rm -f "$log"
  local t0 t1 deadline=$((SECONDS + 120))
  t0=$(date +%s%N)
  "$@" >/dev/null 2>&1 &
  local pid=$!
  until [ -s "$log" ] && grep -qv '^#' "$log"; do
    [ "$SECONDS" -lt "$deadline" ] || { kill "$pid" 2>/dev/null; echo "timeout"; return; }
    sleep 0.002
  done
  t1=$(date +%s%N)
  wait "$pid"
  echo $(((t1 - t0) / 1000000))
}
summary() {  # name, then the figures
  local name=$1; shift
  local sorted
  sorted=$(printf '%s\n' "$@" | sort -n)
  printf '%-48s best %5s ms   median %5s ms   (%s runs)\n' "$name" "$(echo "$sorted" | head -n 1)" \
    "$(echo "$sorted" | sed -n "$(((${#@} + 1) / 2))p")" "$#"
}

log="$prog/ApplicationLog/wppatchmanagementDownload_R1024_patchlog.log"
pass=() one=()
for _ in $(seq 1 "$runs"); do
  pass+=("$(cd "$prog" && first_entry "$log" "$wine64" 'C:\Program Files\VORN\VORNMobile\BaseComponents\PatchManagement\KPMDwld.exe')")
  one+=("$(first_entry "$WINEPREFIX/drive_c/first.log" "$wine64" 'C:\append_floor.exe' 'C:\first.log')")
done
summary "KPMDwld.exe: start to first log entry" "${pass[@]}"
summary "append_floor.exe: start to its one line (floor)" "${one[@]}"
