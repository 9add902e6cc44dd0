#!/usr/bin/env bash
# Rewrites the expected/ folders of whole-pass scenarios from what their passes
# leave now. Usage: scripts/refresh-scenarios.sh [GROUP/CASE | GROUP ...]
# Without an argument every scenario is refreshed. Read the diff afterwards:
# git diff tests/scenarios
set -euo pipefail
cd "$(dirname "$0")/.."
[ -d build/linux-debug ] || cmake --preset linux-debug >/dev/null
cmake --build --preset linux-debug -j 2 --target kpm_scenario_tests >/dev/null
filter='*'
if [ "$#" -gt 0 ]; then
    filter=''
    for name in "$@"; do
        name=${name#tests/scenarios/}
        name=${name%/}
        filter+="${filter:+:}Whole/Scenario.Leaves/$(tr -c 'A-Za-z0-9\n' '_' <<<"$name")*"
    done
fi
KPM_REFRESH=1 build/linux-debug/tests/kpm_scenario_tests --gtest_brief=1 --gtest_filter="$filter"
git status --short -- tests/scenarios
