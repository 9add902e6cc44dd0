#!/usr/bin/env bash
# The runner as the README uses it: the demo pass, and broken machine folders.
# Usage: runner_test.sh KPMDWLD_SIM SOURCE_DIR
set -u
sim=$1 src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# 1. The demo machine: a whole pass that ends normally.
cp -r "$src/examples/demo-machine" "$work/demo"
"$sim" --now 2026-11-15T16:10:00 "$work/demo" >"$work/out" 2>&1 || fail "demo pass exit code $?"
log=$(find "$work/demo/drives" -name 'wppatchmanagementDownload_R1024_patchlog.log')
[ -n "$log" ] || fail "no activity log"
if [ -n "$log" ]; then
    last=$(tail -n 1 "$log" | tr -d '\r' | cut -f 2-)
    [ "$last" = "$(printf 'ModComman\tCloseAll\tINFO\tApplication stopped.\t\t\t')" ] || fail "last entry: $last"
    grep -q "Selected vendors are : Mozilla,Adobe,Zoom,Notepad++ Team,7-Zip" "$log" || fail "third-party schedule not read"
fi

# 2. Passes that end before their log: exit code 0, no log, and one line on
#    stderr saying why (never in the agent's log).
silent() {  # NAME FOLDER PATTERN [SIM OPTIONS...]
    local name=$1 folder=$2 pattern=$3 out code
    shift 3
    out=$("$sim" "$@" --now 2026-11-15T16:10:00 "$folder" 2>&1 >/dev/null); code=$?
    [ "$code" -eq 0 ] || fail "$name: exit code $code"
    printf '%s' "$out" | grep -q "$pattern" || fail "$name: stderr '$out'"
    [ -z "$(find "$folder/drives" -name '*_patchlog.log')" ] || fail "$name: a log was written"
}
strip_key() {  # FOLDER VALUE: the agent key without that value
    sed -i "/^\"$2\"=/d" "$1/registry.reg"
}
cp -r "$src/examples/demo-machine" "$work/nokey"
sed -i 's/SOFTWARE\\Wow6432Node\\VORNOD/SOFTWARE\\VORNOD/' "$work/nokey/registry.reg"
silent "agent key in the 64-bit view only" "$work/nokey" "no agent key HKEY_LOCAL_MACHINE.SOFTWARE.VORNOD"
cp -r "$src/examples/demo-machine" "$work/noreg" && strip_key "$work/noreg" regID
silent "no regID" "$work/noreg" "the agent key has no regID"
cp -r "$src/examples/demo-machine" "$work/nofolder" && rm -rf "$work/nofolder/drives/C/Program Files/VORN"
silent "no install folder" "$work/nofolder" 'the install folder "C:.Program Files.VORN.VORNMobile" does not exist'
cp -r "$src/examples/demo-machine" "$work/held"
exec 9>"$work/held/.mutex-KPMDwld"
flock 9
silent "another copy running" "$work/held" "another copy of the program holds its single-instance lock"
exec 9>&-
cp -r "$src/examples/demo-machine" "$work/nosite" && strip_key "$work/nosite" SiteID
out=$("$sim" --now 2026-11-15T16:10:00 "$work/nosite" 2>&1 >/dev/null)
printf '%s' "$out" | grep -q "the pass ended after reading the agent key: it has no SiteID" || fail "no SiteID: stderr '$out'"

# 3. A frozen clock: the same pass twice leaves the same log.
for run in 1 2; do
    cp -r "$src/examples/demo-machine" "$work/frozen$run"
    "$sim" --now 2026-11-15T16:10:00 --frozen-clock "$work/frozen$run" >/dev/null 2>&1
done
l1=$(find "$work/frozen1/drives" -name '*_patchlog.log') l2=$(find "$work/frozen2/drives" -name '*_patchlog.log')
[ -n "$l1" ] && cmp -s "$l1" "$l2" || fail "two passes on a frozen clock left different logs"

# 4. Broken machine folders: one line on stderr, exit code 2, no crash.
expect_error() {  # NAME FOLDER PATTERN
    local out code
    out=$("$sim" "$2" 2>&1); code=$?
    [ "$code" -eq 2 ] || fail "$1: exit code $code"
    [ "$(printf '%s\n' "$out" | wc -l)" -eq 1 ] || fail "$1: more than one line: $out"
    printf '%s' "$out" | grep -q "$3" || fail "$1: message '$out'"
}
expect_error "missing folder" "$work/none" "kpmdwld-sim: "
cp -r "$src/examples/demo-machine" "$work/badreg"
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\r\n' >"$work/badreg/registry.reg"
expect_error "malformed registry.reg" "$work/badreg" "registry.reg"
cp -r "$src/examples/demo-machine" "$work/baddrive"
sed -i 's/^ExePath=C:/ExePath=Q:/' "$work/baddrive/machine.ini"
expect_error "unknown drive" "$work/baddrive" "Q"
out=$("$sim" --now 2026-13-01T00:00:00 "$work/demo" 2>&1); [ $? -eq 2 ] || fail "bad --now accepted: $out"

if [ "$failures" -eq 0 ]; then echo "runner: all checks passed"; else exit 1; fi
