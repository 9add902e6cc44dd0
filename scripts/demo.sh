#!/usr/bin/env bash
# The main job on Linux: one pass of KPMDwld on the bundled demo machine.
# Builds, copies examples/demo-machine to scratch/, starts the demo's local
# servers, runs the pass and shows the activity log and what was posted.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

cmake --preset linux-release >/dev/null
cmake --build --preset linux-release -j "$(nproc)" --target kpmdwld-sim

machine=scratch/demo-machine
rm -rf "$machine"
mkdir -p scratch
cp -r examples/demo-machine "$machine"

now=${KPM_DEMO_NOW:-2026-11-15T16:10:00}
echo "== Pass on $machine at $now"
set +e
build/linux-release/kpmdwld-sim --now "$now" "$machine"
code=$?
set -e
echo "== Exit code: $code"

log=$(find "$machine/drives" -name 'wppatchmanagementDownload_*_patchlog.log' | head -n 1)
if [ -n "$log" ]; then
    echo "== Activity log: ${log#"$machine"/}"
    tr -d '\r' < "$log"
else
    echo "== No activity log was written."
fi
sch=$(find "$machine/drives" -iname 'SchPatch.ini' | head -n 1)
if [ -n "$sch" ]; then
    echo "== Schedule record: ${sch#"$machine"/}"
    tr -d '\r' < "$sch"
fi
if [ -f "$machine/update-services.ini" ]; then
    echo "== Microsoft Update registration recorded by the stand-in"
    tr -d '\r' < "$machine/update-services.ini"
fi
