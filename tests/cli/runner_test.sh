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
    grep -q "Selected vendors are : Adobe,Mozilla,Oracle" "$log" || fail "third-party schedule not read"
fi

# 2. Broken machine folders: one line on stderr, exit code 2, no crash.
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
