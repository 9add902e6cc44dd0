#!/usr/bin/env bash
# wine-compare.sh --exe KPMDwld.exe --standins KPMStandins.dll --cipher KEncDec.dll --kdowfile KDowFile.dll
#                 --sim kpmdwld-sim [--work DIR]
#
# The same machine twice: the demo machine (examples/demo-machine) turned into
# a Wine prefix and passed through the real KPMDwld.exe, and the same folder
# passed through the simulated machine at the same moment. The activity logs
# (entries without their date-time), "SchPatch.ini" (stamps to the minute)
# and the agent's registry key must come out the same.
# Exit status: 0 the same, 1 they differ, 77 skipped (no wine64).
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/wine-agent.sh"
exe="" standins="" cipher="" kdowfile="" sim="" work=""
take_options "exe standins cipher kdowfile sim work" "$@"
require_files "$exe" "$standins" "$cipher" "$kdowfile" "$sim"
find_wine64
pick_loader "$exe"
[ -n "$work" ] || work=$(mktemp -d /tmp/kpm-wine-compare.XXXXXX)
work=$(realpath -m "$work")
rm -rf "$work" && mkdir -p "$work"
failures=0
fail() { echo "  FAIL: $*"; failures=$((failures + 1)); }
ok() { echo "  ok: $*"; }

export WINEDEBUG=-all LC_ALL=C.UTF-8 WINEDLLOVERRIDES="mscoree,mshtml="
export WINEPREFIX=$work/prefix
demo=$root/examples/demo-machine
program='BaseComponents/PatchManagement'
install_rel='Program Files/VORN/VORNMobile'

# The Windows side: the demo's files on drive C:, its registry imported, the
# real executable where the machine's ExePath puts it, the stand-ins beside it.
# The prefix's server, started first and kept five minutes past its last
# program, and its services stay up until the end (wineserver -k); it and the
# pass run at a raised priority where that is allowed (else nice says so and
# runs them as they are): the pass's own regsvr32 must have registered its
# DLL within the pass's one-second pause (see docs/windows-build.md).
mkdir -p "$WINEPREFIX"
nice -n -10 "$wineserver" -p300 </dev/null >/dev/null 2>&1
trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT
boot_prefix
# No site runs here: Wine's own HTTP stack goes to a closed loopback proxy,
# so it never looks a name up and finds no Internet, as the simulated machine
# finds none for a host its map does not name.
use_internet_proxy 127.0.0.1:9
cp -r "$demo/drives/C/." "$WINEPREFIX/drive_c/"
prog="$WINEPREFIX/drive_c/$install_rel/$program"
cp "$exe" "$prog/KPMDwld.exe"
cp "$cipher" "$prog/KEncDec.dll"
# The maker's COM DLLs the demo has in its install folder: stand-in copies,
# unregistered, as on the simulated side.
install_standins "$standins" "$WINEPREFIX/drive_c/$install_rel" 'C:\Program Files\VORN\VORNMobile' \
  || fail "regsvr32 of the stand-in COM server"
# The download objects see the hosts the simulated machine sees: machine.ini's
# [Network] and [Downloads] sections (an empty map when it has none); the
# update agent stand-in its [WindowsUpdate] settings and its catalogue.
if [ -f "$demo/update-catalog.xml" ]; then cp "$demo/update-catalog.xml" "$WINEPREFIX/drive_c/KPMStandins/"; fi
awk 'BEGIN { print "[Network]" }
     /^[[:space:]]*\[/ { s = tolower($0); gsub(/[[:space:]]/, "", s);
                         keep = (s == "[network]" || s == "[downloads]" || s == "[windowsupdate]");
                         if (s != "[network]" && keep) print; next }
     keep && NF && !/=[[:space:]]*site:/' "$demo/machine.ini" | tr -d '\r' | sed 's/$/\r/' >"$WINEPREFIX/drive_c/KPMStandins/network.ini"
cp "$demo/registry.reg" "$work/demo.reg"
agent_key='HKEY_LOCAL_MACHINE\SOFTWARE\Wow6432Node\VORNOD'
# Without its key the pass finds no agent and ends at once, silently: a
# failed import is said here, not left to the comparison below.
import_reg "$work/demo.reg" "$agent_key" || fail "the demo's registry did not import into the prefix"

# The simulated side: the same folder.
cp -r "$demo" "$work/sim-machine"

# No site runs here, and nothing may be looked up outside the machine: the
# stand-ins' map names no host, the download library is already in place
# (no fetch falls through to the system's URL download of the maker's host),
# and the data center, which the system's URL download reaches, is a closed
# loopback port on both sides.
agent_ini='Program Files/VORN/VORNMobile/VORNMobile.ini'
for side in "$WINEPREFIX/drive_c" "$work/sim-machine/drives/C"; do
  sed -i 's#^DownLoadSite=.*#DownLoadSite=http://127.0.0.1:9/updates\r#' "$side/$agent_ini"
  cp "$kdowfile" "$side/$install_rel/$program/KDowFile.dll"
done

# Both at the same moment (the schedule decides by the clock). Near an edge of
# the demo's windows (16:00, 17:00) or midnight the two could fall on either
# side of it, so such a moment is waited out. "SchPatch.ini" stamps the run to
# the minute, some seconds into the pass (more under Wine than on the
# simulated clock): started early in a minute, both passes stamp that minute.
seconds_of_day() { echo $((10#$(date +%H) * 3600 + 10#$(date +%M) * 60 + 10#$(date +%S))); }
while :; do
  waited=0
  for edge in 57600 61200 86400 0; do
    gap=$((edge - $(seconds_of_day)))
    if [ "$gap" -ge -30 ] && [ "$gap" -le 30 ]; then sleep $((gap + 31)); waited=1; fi
  done
  second=$((10#$(date +%S)))
  if [ "$second" -gt 20 ]; then sleep $((61 - second)); waited=1; fi
  [ "$waited" = 1 ] || break
done
now=$(date +%Y-%m-%dT%H:%M:%S)
(cd "$prog" && timeout 600 nice -n -10 "$winexe" 'C:\Program Files\VORN\VORNMobile\BaseComponents\PatchManagement\KPMDwld.exe' \
  >"$work/wine.out" 2>&1)
wine_rc=$?
"$sim" --now "$now" "$work/sim-machine" >"$work/sim.out" 2>&1
sim_rc=$?

[ "$wine_rc" = "$sim_rc" ] && ok "exit codes $wine_rc" || fail "exit codes: Wine $wine_rc, simulated $sim_rc"

# Logs: header lines but the date, then every entry without its date-time.
# Wine makes its own 8.3 aliases (PROG~FBU where Windows has PROGRA~1), so a
# path component with a "~" is compared as "~".
log_rel="$install_rel/$program/ApplicationLog/wppatchmanagementDownload_R1024_patchlog.log"
# The download status report carries what differs between the two computers
# and start moments: the disk's sizes, the pass's start time (and so the
# encrypted document), and its trap's last system error code.
normal_log() {
  [ -f "$1" ] || { echo "(no log)"; return; }
  tr -d '\r' < "$1" | awk -F'\t' '/^#Date: /{print "#Date: (when)"; next} /^#/{print; next} {sub(/^[^\t]*\t/, ""); print}' |
    sed -E 's/[A-Za-z0-9_$-]*~[A-Za-z0-9_]+/~/g' |
    sed -E -e 's#<(drivespace|freedrivespace|dctime)>[^<]*</(drivespace|freedrivespace|dctime)>#<\1>*</\2>#g' \
           -e 's#(<wppthdwldinfo><!\[CDATA\[)[^]]*\]\]>#\1*]]>#g' \
           -e 's#^(ModWebPost\tFncWebPostDownloadStatus\tERROR\t[^\t]*\t[^\t]*\t)[0-9]+#\1*#'
}
normal_log "$WINEPREFIX/drive_c/$log_rel" >"$work/wine.log"
normal_log "$work/sim-machine/drives/C/$log_rel" >"$work/sim.log"
if diff -u "$work/sim.log" "$work/wine.log" >"$work/log.diff"; then
  ok "activity logs match ($(grep -vc "^#" "$work/wine.log") lines at $now)"
else
  fail "activity logs differ (- simulated, + Wine):"; sed 's/^/    /' "$work/log.diff" | head -n 60
fi

# "SchPatch.ini": the same sections and keys; stamps compared to the minute.
normal_ini() {
  local f
  f=$(find "$1" -iname 'SchPatch.ini' | head -n 1)
  [ -n "$f" ] || { echo "(no SchPatch.ini)"; return; }
  tr -d '\r' < "$f" | sed -E 's#^(LDwnRDate=[0-9/]+ [0-9]{2}:[0-9]{2}):[0-9]{2}$#\1#'
}
normal_ini "$WINEPREFIX/drive_c/$install_rel/$program" >"$work/wine.ini"
normal_ini "$work/sim-machine/drives/C/$install_rel/$program" >"$work/sim.ini"
diff -u "$work/sim.ini" "$work/wine.ini" >"$work/ini.diff" && ok "SchPatch.ini matches" \
  || { fail "SchPatch.ini differs:"; sed 's/^/    /' "$work/ini.diff"; }

# The agent's key as each side's registry holds it after the pass.
export_reg "$agent_key" "$work/wine-agent.reg"
agent_values() {  # the value lines of the agent's key in a .reg file (any encoding)
  local text
  [ -f "$1" ] || return 0
  if head -c 2 "$1" | od -An -tx1 | grep -q 'ff fe'; then text=$(iconv -f UTF-16LE -t UTF-8 "$1"); else text=$(cat "$1"); fi
  printf '%s\n' "$text" | tr -d '\r' | sed 's/^\xEF\xBB\xBF//' | awk '
    /^\[/ { inkey = (tolower($0) == "[hkey_local_machine\\software\\wow6432node\\vornod]"); next }
    inkey && NF { print }' | sort
}
agent_values "$work/wine-agent.reg" >"$work/wine-agent.txt"
agent_values "$work/sim-machine/registry.reg" >"$work/sim-agent.txt"
if [ -s "$work/wine-agent.txt" ] && diff -u "$work/sim-agent.txt" "$work/wine-agent.txt" >"$work/reg.diff"; then
  ok "agent registry key matches ($(wc -l <"$work/wine-agent.txt") values)"
else
  fail "agent registry key differs:"; sed 's/^/    /' "$work/reg.diff" 2>/dev/null
fi
if [ "$failures" -gt 0 ]; then
  echo "  what the Wine pass printed (wine.out):"; head -n 20 "$work/wine.out" | sed 's/^/    /'
fi

"$wineserver" -k >/dev/null 2>&1 || true
if [ "$failures" -gt 0 ]; then
  echo "wine-compare: $failures differences (work folder kept: $work)"
  exit 1
fi
drop_prefixes "$WINEPREFIX"
echo "wine-compare: the Wine pass and the simulated pass agree"
exit 0
