#!/usr/bin/env bash
# Installs what building, testing and the demo need, from Debian's packages.
# Usage: scripts/install-deps.sh [--with-wine]
set -euo pipefail

native=(cmake ninja-build g++ make pkg-config libgtest-dev libbenchmark-dev libpugixml-dev
        libcurl4-openssl-dev libcpp-httplib-dev libminizip-dev zlib1g-dev libssl-dev zip unzip python3
        clang libclang-rt-14-dev gdb)
windows=(googletest g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-x86-64-dev
         libz-mingw-w64-dev binutils-mingw-w64-x86-64 binutils-mingw-w64-i686)

missing() {
    local out=()
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || out+=("$p")
    done
    echo "${out[@]:-}"
}

# The 32-bit Wine loader, for the shipping 32-bit build's tests: it needs the
# i386 architecture. On some days Debian's i386 security index lags the
# amd64 one (or its mirror serves a stale copy) and the i386 libraries cannot
# match the installed amd64 ones, which multiarch requires. Then the install
# is tried again from the release's own packages, each library that still
# differs aligned on both architectures to the version the i386 index has
# (apt's --allow-downgrades; this is a test machine, and what was aligned is
# printed). When even that cannot resolve, the reason is kept in
# build/wine32-unavailable.txt for the Windows lane to report.
wine32_installed() { dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q 'install ok installed'; }

# Prints the pins "pkg:amd64=V pkg:i386=V" that make the install resolve from
# the release's packages, or fails. Each round reads apt's simulated refusal.
wine32_alignment() {
    local release=$1 pins=() round out pkg ver
    for round in 1 2 3 4 5 6; do
        out=$(apt-get install -s -t "$release" --allow-downgrades --no-install-recommends wine32:i386 "${pins[@]}" 2>&1) &&
            { echo "${pins[@]:-}"; return 0; }
        local found=0
        for pkg in $(sed -nE 's/.*(Depends|Breaks): ([a-z0-9][a-z0-9.+-]*):i386 .*/\2/p' <<<"$out" | sort -u); do
            ver=$(apt-cache policy "$pkg:i386" | sed -n 's/^ *Candidate: //p')
            case "$ver" in ""|"(none)") continue ;; esac
            case " ${pins[*]:-} " in *" $pkg:i386="*) continue ;; esac
            pins+=("$pkg:amd64=$ver" "$pkg:i386=$ver")
            found=1
        done
        [ "$found" = 1 ] || return 1
    done
    return 1
}

install_wine32() {
    local why="$(cd "$(dirname "$0")/.." && pwd)/build/wine32-unavailable.txt" out release pins
    mkdir -p "$(dirname "$why")"
    if wine32_installed; then
        rm -f "$why"
        return 0
    fi
    if ! dpkg --print-foreign-architectures | grep -qx i386; then
        "${sudo_cmd[@]}" dpkg --add-architecture i386
        unset KPM_APT_UPDATED
    fi
    echo "Installing: wine32:i386"
    out=$({ "${sudo_cmd[@]}" apt-get update -qq 2>&1 || true
            DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends wine32:i386 2>&1; } |
          grep -E '^(E|W): ' | head -n 5 || true)
    release=$(. /etc/os-release 2>/dev/null && echo "${VERSION_CODENAME:-}")
    if ! wine32_installed && [ -n "$release" ] && pins=$(wine32_alignment "$release"); then
        echo "wine32:i386 did not resolve against the security indexes; installing it from $release's packages${pins:+, aligning: $pins}"
        # shellcheck disable=SC2086
        DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq -t "$release" --allow-downgrades \
            --no-install-recommends wine32:i386 $pins >/dev/null 2>&1 || true
    fi
    if wine32_installed; then
        rm -f "$why"
    else
        printf '%s\n' "${out:-the package did not install}" | grep -v '^W: ' >"$why" || echo "the package did not install" >"$why"
        echo "NOTE: wine32:i386 could not be installed; the 32-bit Wine steps will be skipped ($(head -n 1 "$why"))."
    fi
}

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)

install() {
    local need
    need=$(missing "$@")
    [ -z "$need" ] && return 0
    echo "Installing: $need"
    if [ -z "${KPM_APT_UPDATED:-}" ]; then
        # An index that failed (the i386 one lags at times) is not fatal: what
        # the install needs says so itself.
        "${sudo_cmd[@]}" apt-get update -qq || echo "NOTE: apt-get update reported errors; going on"
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
    install_wine32
fi
