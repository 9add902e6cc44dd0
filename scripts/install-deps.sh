#!/usr/bin/env bash
# Installs what building, testing and the demo need, from Debian's packages.
# Usage: scripts/install-deps.sh [--with-wine]
set -euo pipefail

native=(cmake ninja-build g++ make pkg-config libgtest-dev libbenchmark-dev libpugixml-dev
        libcurl4-openssl-dev libcpp-httplib-dev libminizip-dev zlib1g-dev libssl-dev zip unzip python3
        clang libclang-rt-14-dev)
windows=(googletest g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-x86-64-dev
         libz-mingw-w64-dev binutils-mingw-w64-x86-64 binutils-mingw-w64-i686)

missing() {
    local out=()
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || out+=("$p")
    done
    echo "${out[@]:-}"
}

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)

install() {
    local need
    need=$(missing "$@")
    [ -z "$need" ] && return 0
    echo "Installing: $need"
    if [ -z "${KPM_APT_UPDATED:-}" ]; then
        "${sudo_cmd[@]}" apt-get update -qq
        export KPM_APT_UPDATED=1
    fi
    # shellcheck disable=SC2086
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends $need
}

install "${native[@]}"
if [ "${1:-}" = "--with-wine" ]; then
    install "${windows[@]}"
    # Wine is optional: where it cannot be installed the Windows lane is skipped.
    install wine64 || echo "NOTE: wine64 could not be installed; the Wine tests will be skipped."
fi
