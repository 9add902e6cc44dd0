#!/usr/bin/env bash
# wine-big-pass.sh --exe KPMDwld.exe --standins KPMStandins.dll --cipher KEncDec.dll
#                  --kdowfile KDowFile.dll --floor append_floor.exe --maker kpm_big_machine
#                  --sites kpm-sites --work DIR [--scale N] [--runs N] [--sim kpmdwld-sim]
#
# The big managed computer of the pass benchmark, at a tenth of its size by
# default (300 updates), as a Wine prefix: the real KPMDwld.exe makes its whole
# pass under wine64 against the loopback sites server, and the floor is the
# same log entries appended one CreateFile/WriteFile/CloseHandle each by
# append_floor.exe in the same prefix. Each run starts from a fresh copy of the
# program's files; the prefix's server stays up between runs. With --sim, the
# same machine's pass on the simulated machine is timed too, for comparison.
# Prints the figures (best of N runs); checks only that each pass ended with
# exit code 0 and "Application stopped.".
# Exit status: 0 done, 1 a pass failed, 2 usage, 77 skipped (no wine64).
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/wine-agent.sh"
exe="" standins="" cipher="" kdowfile="" floor="" maker="" sites="" work="" sim="" scale=10 runs=3
take_options "exe standins cipher kdowfile floor maker sites work sim scale runs" "$@"
require_files "$exe" "$standins" "$cipher" "$kdowfile" "$floor" "$maker" "$sites"
[ -n "$work" ] || { echo "wine-big-pass: --work DIR is required" >&2; exit 2; }
find_wine64
work=$(realpath -m "$work")
rm -rf "$work" && mkdir -p "$work"
export WINEDEBUG=${WINEDEBUG:--all} LC_ALL=C.UTF-8 WINEDLLOVERRIDES="mscoree,mshtml=" WINEPREFIX=$work/prefix
unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY all_proxy ALL_PROXY

"$maker" "$work/big" "$scale" || exit 1
machine=$work/big/machine
"$root/scripts/sites-fixture.sh" start "$work/sites" "$work/big/sites" "$sites" --proxy - \
  --proxy-host www.microsoft.com=microsoft --proxy-host download.windowsupdate.com=microsoft \
  >"$work/sites-start.out" 2>&1 || { cat "$work/sites-start.out"; exit 1; }
finish() {
  "$wineserver" -k >/dev/null 2>&1 || true
  "$root/scripts/sites-fixture.sh" stop "$work/sites" >/dev/null 2>&1
}
trap finish EXIT

# The machine's host map with this server's ports in place of the builder's.
network=$(tr -d '\r' <"$machine/machine.ini" | sed -n '/^\[Network\]/,/^\[/p' | grep -v '^\[')
while IFS='=' read -r site old; do
  new=$(sed -n "s/^$site=//p" "$work/sites/ports.txt")
  [ -n "$new" ] && network=$(printf '%s\n' "$network" | sed "s/=127\.0\.0\.1:$old\$/=127.0.0.1:$new/")
done <"$work/big/ports.txt"
printf '%s\n' "$network" >"$work/network.txt"
# The simulated machine gets the same map (its files are the pass's "before"),
# and on both the Windows Update service is automatic and running, as on a
# managed computer between passes: no pass waits for it to start.
{ tr -d '\r' <"$machine/machine.ini" | sed '/^\[Network\]/,$d'; echo '[Network]'; cat "$work/network.txt"
  printf '[Services]\nwuauserv=running\n'; } | sed 's/$/\r/' >"$work/machine.ini" && mv "$work/machine.ini" "$machine/machine.ini"
printf '\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\wuauserv]\r\n"Start"=dword:00000002\r\n' \
  >>"$machine/registry.reg"

# The prefix: its server first, kept up between runs; the sites server's proxy
# as the computer's (www.microsoft.com for the connectivity probe).
mkdir -p "$WINEPREFIX"
"$wineserver" -p300 </dev/null >/dev/null 2>&1
"$wine64" wineboot --init >/dev/null 2>&1
use_internet_proxy "127.0.0.1:$(sed -n 's/^proxy=//p' "$work/sites/ports.txt")"
drive_c=$WINEPREFIX/drive_c
install_rel='Program Files/VORN/VORNMobile'
prog_win='C:\Program Files\VORN\VORNMobile\BaseComponents\PatchManagement'
mkdir -p "$drive_c/KPMStandins"
cp "$standins" "$drive_c/KPMStandins/KPMStandins.dll"
"$wine64" regsvr32 -s 'C:\KPMStandins\KPMStandins.dll' >/dev/null 2>&1
{ printf '[Network]\n'; cat "$work/network.txt"; printf '[Downloads]\nStallSeconds=30\n'; } | sed 's/$/\r/' \
  >"$drive_c/KPMStandins/network.ini"
cp "$machine/update-catalog.xml" "$drive_c/KPMStandins/update-catalog.xml"
cp "$floor" "$drive_c/append_floor.exe"
# The agent's key, Windows' update values and the maker's classes (registered
# with their DLLs in the install folder, as on the simulated machine).
cp "$machine/registry.reg" "$work/machine.reg"
import_reg "$work/machine.reg" 'HKLM\SOFTWARE\Wow6432Node\VORNOD' || exit 1

# The Microsoft window (days, from, to) widened to every day, all day.
widen() {
  sed -i -e 's#<c3>[^<]*</c3>#<c3>1,2,3,4,5,6,7</c3>#' -e 's#<c4>[^<]*</c4>#<c4>00:00</c4>#' \
    -e 's#<c5>[^<]*</c5>#<c5>23:59</c5>#' "$1"
}
"$wine64" net start wuauserv >/dev/null 2>&1

# The program's files as they are before each pass: the machine's own, the
# stand-ins over its placeholders, the schedule's window widened to now.
clean="$work/clean/$install_rel"
mkdir -p "$work/clean/Program Files/VORN"
cp -r "$machine/drives/C/$install_rel" "$work/clean/Program Files/VORN/"
for dll in kWbPost.dll kDwnJob.dll Chilkatzip2.dll; do cp "$standins" "$clean/$dll"; done
cprog="$clean/BaseComponents/PatchManagement"
cp "$exe" "$cprog/KPMDwld.exe"
cp "$cipher" "$cprog/KEncDec.dll"
cp "$kdowfile" "$cprog/KDowFile.dll"
widen "$cprog/MSUpd.xml"
regid=$(tr -d '\r' <"$machine/registry.reg" | sed -n 's/^"regID"="\(.*\)"$/\1/p' | head -n 1)
log_rel="BaseComponents/PatchManagement/ApplicationLog/wppatchmanagementDownload_${regid}_patchlog.log"

# The window's edges (the minute after midnight, the last one of the day) are waited out.
now_s=$((10#$(date +%H) * 3600 + 10#$(date +%M) * 60 + 10#$(date +%S)))
if [ "$now_s" -ge $((86400 - 300)) ]; then sleep $((86400 - now_s + 65)); fi
if [ "$now_s" -lt 65 ]; then sleep $((65 - now_s)); fi

ms_now() { echo $(($(date +%s%N) / 1000000)); }
best() { printf '%s\n' "$@" | sort -n | head -n 1; }
# The prefix's server does a Wine program's file and handle work: its CPU time
# counts with the program's. It runs in a folder named after the prefix.
server_id=$(printf 'server-%x-%x' $(stat -c '%d %i' "$WINEPREFIX"))
server_ticks() {
  local p
  for p in $(pgrep -x wineserver64; pgrep -x wineserver); do
    case "$(readlink "/proc/$p/cwd")" in */"$server_id") awk '{ print $14 + $15 }' "/proc/$p/stat"; return ;; esac
  done
  echo 0
}
# timed OUT COMMAND...: runs it; sets wall_ms and cpu_ms (its user and system
# time with the prefix server's share); returns its exit code.
timed() {
  local out=$1 t0 s0 rc; shift
  s0=$(server_ticks) t0=$(ms_now)
  /usr/bin/time -f '%U %S' -o "$work/time.txt" "$@" >"$out" 2>&1
  rc=$?
  wall_ms=$(($(ms_now) - t0))
  cpu_ms=$(awk -v s=$(($(server_ticks) - s0)) -v hz="$(getconf CLK_TCK)" \
    '{ printf "%d", ($1 + $2) * 1000 + s * 1000 / hz }' "$work/time.txt")
  return $rc
}
pass_ms=() pass_cpu=() floor_ms=() floor_cpu=() loop_ms=() sim_ms=()
status=0
for run in $(seq 1 "$runs"); do
  rm -rf "$drive_c/$install_rel"
  mkdir -p "$drive_c/Program Files/VORN"
  cp -r "$clean" "$drive_c/Program Files/VORN/"
  (cd "$drive_c/$install_rel/BaseComponents/PatchManagement" &&
    timed "$work/wine-run$run.out" timeout 900 "$wine64" "$prog_win\\KPMDwld.exe"; echo "$? $wall_ms $cpu_ms" >"$work/pass.txt")
  read -r rc wall cpu <"$work/pass.txt"
  pass_ms+=("$wall") pass_cpu+=("$cpu")
  log="$drive_c/$install_rel/$log_rel"
  last=$(tr -d '\r' <"$log" 2>/dev/null | grep -v '^#' | tail -n 1 | cut -f5)
  if [ "$rc" != 0 ] || [ "$last" != "Application stopped." ]; then
    echo "wine-big-pass: run $run: exit code $rc, last entry '$last' (log: $log)"
    status=1
    break
  fi
  grep -v '^#' "$log" >"$drive_c/entries.txt"
  entries=$(wc -l <"$drive_c/entries.txt")
  rm -f "$drive_c/floor.log"
  timed "$work/floor.out" "$wine64" 'C:\append_floor.exe' 'C:\floor.log' 'C:\entries.txt'
  floor_ms+=("$wall_ms") floor_cpu+=("$cpu_ms")
  loop_ms+=("$(tr -d '\r' <"$work/floor.out" | sed -n 's/.* lines \([0-9]*\)\..*/\1/p')")
  cp "$log" "$work/wine-run$run.log"
  if [ -n "$sim" ]; then
    rm -rf "$work/sim-run" && cp -r "$machine" "$work/sim-run"
    widen "$work/sim-run/drives/C/$install_rel/BaseComponents/PatchManagement/MSUpd.xml"
    timed "$work/sim.out" "$sim" --now "$(date +%Y-%m-%dT%H:%M:%S)" "$work/sim-run"
    sim_ms+=("$wall_ms")
    cp "$work/sim-run/drives/C/$install_rel/$log_rel" "$work/sim-run$run.log"
  fi
done
[ "$status" = 0 ] || exit 1

row() { printf '%-58s %7s ms   (runs: %s)\n' "$1" "$(best "${@:2}")" "${*:2}"; }
echo "== the big pass under Wine: $(tr -d '\r' <"$machine/update-catalog.xml" | grep -o '<update id="u' | wc -l) updates, $entries log entries, best of $runs"
row "KPMDwld.exe (64-bit) whole pass: wall" "${pass_ms[@]}"
row "  its CPU (user + system, with the Wine server's)" "${pass_cpu[@]}"
row "floor: append_floor.exe, the same entries: wall" "${floor_ms[@]}"
row "  its CPU (user + system, with the Wine server's)" "${floor_cpu[@]}"
row "  its append loop alone" "${loop_ms[@]}"
awk -v pw="$(best "${pass_ms[@]}")" -v fw="$(best "${floor_ms[@]}")" -v pc="$(best "${pass_cpu[@]}")" \
  -v fc="$(best "${floor_cpu[@]}")" 'BEGIN { printf "%-58s %7.1fx wall, %.1fx CPU\n", "pass / floor", pw / fw, pc / fc }'
# Where the wall time goes, from the first run's activity log (whole seconds):
# each phase ends at the first entry with that message.
at() {  # MESSAGE|FIRST|LAST: the epoch second of that entry
  local line entries
  entries=$(tr -d '\r' <"$work/wine-run1.log" | grep -v '^#')
  case "$1" in
    FIRST) line=$(echo "$entries" | head -n 1) ;;
    LAST) line=$(echo "$entries" | tail -n 1) ;;
    *) line=$(echo "$entries" | awk -F'\t' -v m="$1" '$5 == m { print; exit }') ;;
  esac
  [ -n "$line" ] && date -d "$(echo "$line" | cut -f1)" +%s
}
phase() {  # LABEL FROM TO
  local a b
  a=$(at "$2") b=$(at "$3")
  [ -n "$a" ] && [ -n "$b" ] && printf '  %-56s %7s s\n' "$1" $((b - a))
}
echo "the first run's phases:"
phase "start to the component check (WMI's process list)" FIRST "DLL check completed Successfully."
phase "the system probes (registry, WMI's operating system)" "DLL check completed Successfully." "OS Found."
phase "black list and its post" "OS Found." "Starting Automatic Update Service"
phase "the update service started (and the pass's 10 s wait)" "Starting Automatic Update Service" "Service Running"
phase "scan, selection, downloads (1 s polls), clean-up, report" "Service Running" LAST
if [ -n "$sim" ]; then
  row "the same pass on the simulated machine (kpmdwld-sim): wall" "${sim_ms[@]}"
  echo "log entries: Wine $entries, simulated $(grep -vc '^#' "$work/sim-run1.log")"
fi
echo "logs: $work/wine-run1.log"
