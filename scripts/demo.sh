#!/usr/bin/env bash
# The main job on Linux: one pass of KPMDwld on the bundled demo machine
# (examples/demo-machine) against its local sites (examples/demo-sites),
# told by scripts/run-pass.sh: the activity log, the files fetched, every
# request the sites answered, the documents posted, the schedule and update
# records. Everything is left in scratch/demo. KPM_DEMO_NOW sets the moment
# (default 2026-11-15T16:10:00, inside the demo's download windows).
set -euo pipefail
cd "$(dirname "$0")/.."
exec scripts/run-pass.sh --machine examples/demo-machine --sites examples/demo-sites \
    --now "${KPM_DEMO_NOW:-2026-11-15T16:10:00}" --out scratch/demo "$@"
