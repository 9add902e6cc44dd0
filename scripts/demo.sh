#!/usr/bin/env bash
# The main job on Linux: one pass of KPMDwld on the bundled demo machine.
# Builds, copies examples/demo-machine to scratch/, starts the demo's local
# sites (examples/demo-sites) on free loopback ports, maps the machine's host
# names to them, runs the pass and shows the activity log, the files fetched
# and every request the sites answered. Install and build output go to
# scratch/demo-build.log, shown only when something fails.
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p scratch
buildlog=scratch/demo-build.log
: >"$buildlog"
quiet() {  # runs a step with its output in the build log; shows the log when it fails
    if ! "$@" >>"$buildlog" 2>&1; then
        echo "== '$*' failed; its output:"
        tail -n 60 "$buildlog"
        exit 1
    fi
}
echo "== Installing and building (output in $buildlog)"
quiet scripts/install-deps.sh
quiet cmake --preset linux-release
quiet cmake --build --preset linux-release -j "$(nproc)" --target kpmdwld-sim kpm-sites kpmdwld-encdec

machine=scratch/demo-machine
sites=scratch/demo-sites
rm -rf "$machine" "$sites"
cp -r examples/demo-machine "$machine"
cp -r examples/demo-sites "$sites"
find "$sites" -name .keep -delete
# The data center's archive, made by a real zip tool, and a placeholder for
# the maker's download library.
(cd "$sites/dc/updates/wblist" && zip -q -X wblist.zip PatchBlackList.txt && zip -q -X pdlist.zip PDList.xml AUOptions.xml)
printf 'MZ (stand-in for the maker'"'"'s download library)\r\n' >"$sites/updates/kScc/KDowFile.dll"

ports=$sites/ports.txt
build/linux-release/sites/kpm-sites --site gateway="$sites/gateway" --site dc="$sites/dc" \
    --site updates="$sites/updates" --site microsoft="$sites/microsoft" --site manage="$sites/manage" \
    --log "$sites/requests.log" --posts "$sites/posts" --ports-file "$ports" >"$sites/server.out" 2>&1 &
server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -s "$ports" ] && break; sleep 0.1; done
[ -s "$ports" ] || { echo "== the sites server did not start:"; cat "$sites/server.out"; exit 1; }
port() { sed -n "s/^$1=//p" "$ports"; }
{
    printf '\r\n[Network]\r\n'
    printf 'gateway.corp.lan=127.0.0.1:%s\r\n' "$(port gateway)"
    printf 'dc.vornsoft.com=127.0.0.1:%s\r\n' "$(port dc)"
    printf 'update.vornsoft.com=127.0.0.1:%s\r\n' "$(port updates)"
    printf 'download.windowsupdate.com=127.0.0.1:%s\r\n' "$(port microsoft)"
    # Microsoft's web site: the page the connectivity probe asks for.
    printf 'www.microsoft.com=127.0.0.1:%s\r\n' "$(port microsoft)"
    # The management site, primary and secondary address.
    printf 'manage.vornsoft.com=127.0.0.1:%s\r\n' "$(port manage)"
    printf 'manage2.vornsoft.com=127.0.0.1:%s\r\n' "$(port manage)"
} >>"$machine/machine.ini"

now=${KPM_DEMO_NOW:-2026-11-15T16:10:00}
echo "== Pass on $machine at $now (local sites: $(tr '\n' ' ' <"$ports"))"
touch "$sites/before"
set +e
build/linux-release/kpmdwld-sim --now "$now" "$machine"
code=$?
set -e
echo "== Exit code: $code"

log=$(find "$machine/drives" -name 'wppatchmanagementDownload_*_patchlog.log' | head -n 1)
if [ -n "$log" ]; then
    echo "== Activity log: ${log#"$machine"/}"
    tr -d '\r' <"$log"
else
    echo "== No activity log was written."
fi
echo "== Files the pass fetched and kept (the black list went to Temp, which every pass removes at its end)"
find "$machine/drives" -type f -newer "$sites/before" ! -name '*.log' ! -iname 'SchPatch.ini' ! -name 'DwldURL.txt' |
    while read -r f; do printf '  %s (%s bytes)\n' "${f#"$machine"/drives/}" "$(stat -c %s "$f")"; done
echo "== Requests the local sites answered (site, method, host, path, query, status, bytes)"
cat "$sites/requests.log"
echo "== Documents posted to the management site (encrypted posts decrypted with kpmdwld-encdec decrypt-post)"
for f in "$sites"/posts/*; do
    [ -f "$f" ] || continue
    echo "  ${f##*/}:"
    if grep -q 'CDATA' "$f"; then
        build/linux-release/kpmdwld-encdec decrypt-post "$f" - | sed 's/^/    /'
    else
        sed 's/^/    /' "$f"
    fi
    echo
done
sch=$(find "$machine/drives" -iname 'SchPatch.ini' | head -n 1)
if [ -n "$sch" ]; then
    echo "== Schedule record: ${sch#"$machine"/}"
    tr -d '\r' <"$sch"
fi
