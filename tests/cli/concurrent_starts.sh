#!/usr/bin/env bash
# Twenty starts at once on one simulated machine: exactly one pass runs; the
# others leave without a trace (the executable's mutex is held) or log the
# three "Previous Instance Running" lines. The first pass is kept busy by a
# gateway that stalls, so every start happens while it runs.
# Usage: concurrent_starts.sh KPMDWLD_SIM KPM_SITES SOURCE_DIR
set -u
sim=$1 sites=$2 src=$3
work=$(mktemp -d)
trap '"$src/scripts/sites-fixture.sh" stop "$work/sites" >/dev/null 2>&1; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

mkdir -p "$work/site/gateway"
echo "gateway * stall 4" >"$work/site/faults.txt"
"$src/scripts/sites-fixture.sh" start "$work/sites" "$work/site" "$sites" >/dev/null || fail "sites server"
port=$(sed -n 's/^gateway=//p' "$work/sites/ports.txt")
cp -r "$src/examples/demo-machine" "$work/m"
printf '\r\n[Network]\r\n*=127.0.0.1:%s\r\n[Downloads]\r\nStallSeconds=10\r\n' "$port" >>"$work/m/machine.ini"

for i in $(seq 20); do
  "$sim" --now 2026-11-15T16:10:00 "$work/m" >"$work/out.$i" 2>&1 &
done
wait

log=$(find "$work/m/drives" -name 'wppatchmanagementDownload_R1024_patchlog.log')
[ -n "$log" ] || fail "no activity log"
passes=$(grep -c $'\tApplication stopped.\t' "$log")
starts=$(grep -c $'\tmodMain\tMain\tINFO\t' "$log")
previous=$(grep -c $'\tPrevious Instance Running\t' "$log")
[ "$passes" -eq 1 ] || fail "$passes passes ended (want 1)"
[ "$starts" -eq $((1 + previous)) ] || fail "$starts starts logged, $previous saw a previous instance"
[ "$(grep -c $'\tDowSchTime\|LDwnRDate' "$work/m/drives/C/Program Files/VORN/VORNMobile/BaseComponents/PatchManagement/SchPatch.ini")" -ge 1 ] ||
  fail "SchPatch.ini has no download stamp"
echo "concurrent starts: 1 pass of 20 starts ($previous saw a previous instance)"
