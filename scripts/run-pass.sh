#!/usr/bin/env bash
# run-pass.sh [--machine DIR] [--sites DIR] [--now YYYY-MM-DDTHH:MM:SS] [--frozen-clock] [--out DIR] [--keep-sites]
#
# One pass of KPMDwld on a machine folder of your own, against local sites of
# your own, told as a story: the activity log, the files the pass fetched, the
# requests the sites answered, the documents posted (decrypted), the schedule
# record and the third-party update record. The story starts with what the
# checker (kpmdwld-check) says of the machine at that moment: each window
# inside or why not, and its warnings (the whole report in OUT/check.txt).
#
#   --machine DIR   a simulated Windows machine (docs/simulated-machine.md);
#                   default examples/demo-machine. Its machine.ini [Network]
#                   lines "HOST=site:NAME" send HOST to the local site NAME.
#   --sites DIR     one folder per site (its files are what the site serves);
#                   default examples/demo-sites. A folder named X.zip is
#                   served as the zip archive X.zip of its files. Optional
#                   files beside the sites: faults.txt (kpm-sites --help),
#                   tls.txt (SITE=HOST,... lines: those sites speak HTTPS, and
#                   the machine finds their root as local-sites-ca.pem) and
#                   proxy.ini ([Proxy] Credentials=USER:PASS). The LAN proxy
#                   runs when machine.ini sends a host to site:proxy; it
#                   reaches every host machine.ini maps to a site.
#   --now           the moment of the pass (default 2026-11-15T16:10:00)
#   --frozen-clock  the clock moves only with the program's sleeps: two runs
#                   leave the same log
#   --out DIR       where everything is left (default scratch/run): machine/
#                   (the machine after the pass), sites/, requests.log,
#                   posts/, and the story again in story.txt
#   --keep-sites    leave the sites running after the pass and write
#                   OUT/sites.txt: their ports (NAME=PORT, what kpmdwld-sim
#                   --sites-ports reads), then "# pid=" and "# kpm-sites" with
#                   the proxy settings they were started with
# Install and build output go to OUT/build.log, shown only when something fails.
set -euo pipefail
cd "$(dirname "$0")/.."
machine_src=examples/demo-machine sites_src=examples/demo-sites now=2026-11-15T16:10:00 frozen=() out=scratch/run
keep_sites=""
while [ $# -gt 0 ]; do
    case "$1" in
        --machine) machine_src=$2; shift 2 ;;
        --sites) sites_src=$2; shift 2 ;;
        --now) now=$2; shift 2 ;;
        --frozen-clock) frozen=(--frozen-clock); shift ;;
        --out) out=$2; shift 2 ;;
        --keep-sites) keep_sites=1; shift ;;
        -h|--help) sed -n 2,33p "$0"; exit 0 ;;
        *) echo "run-pass.sh: unknown option '$1' (--help lists them)" >&2; exit 2 ;;
    esac
done
[ -f "$machine_src/machine.ini" ] || { echo "run-pass.sh: $machine_src is no machine folder (no machine.ini)" >&2; exit 2; }
[ -d "$sites_src" ] || { echo "run-pass.sh: no sites folder $sites_src" >&2; exit 2; }

mkdir -p "$out"
out=$(cd "$out" && pwd)
buildlog=$out/build.log
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
quiet cmake --build --preset linux-release -j 2 --target kpmdwld-sim kpm-sites kpmdwld-encdec kpmdwld-check kpmdwld-catalog
bin=build/linux-release

machine=$out/machine sites=$out/sites
rm -rf "$machine" "$sites" "$out/posts" "$out/requests.log" "$out/story.txt" "$out/sites.txt"
cp -r "$machine_src" "$machine"
cp -r "$sites_src" "$sites"
find "$sites" -name .keep -delete
# The product lists signed with the tool, and the keys the machine trusts
# (kept in scratch/keys: the same keys sign every run).
scripts/sign-lists.sh "$bin/kpmdwld-catalog" scratch/keys "$sites" "$machine"
# Folders named X.zip become the archives the sites serve.
scripts/zip-folders.sh "$sites"

# The sites: every folder; the proxy when the machine sends a host to it, with
# the credentials proxy.ini asks for, reaching the hosts the machine maps.
site_args=()
for d in "$sites"/*/; do site_args+=(--site "$(basename "$d")=${d%/}"); done
network=$(tr -d '\r' <"$machine/machine.ini" | awk '
    /^[[:space:]]*\[/ { s = tolower($0); gsub(/[[:space:]]/, "", s); on = (s == "[network]"); next }
    on { sub(/[[:space:]]*;.*$/, "") } on && /=[[:space:]]*site:/ { print }')
proxy_args=()
if grep -q '=[[:space:]]*site:proxy[[:space:]]*$' <<<"$network"; then
    creds=-
    [ -f "$sites/proxy.ini" ] && creds=$(tr -d '\r' <"$sites/proxy.ini" | sed -n 's/^[[:space:]]*Credentials[[:space:]]*=[[:space:]]*//p' | head -n 1)
    proxy_args=(--proxy "${creds:--}")
    while IFS='=' read -r host target; do
        host=${host%%:*} host=${host// /} target=${target#*site:} target=${target// /}
        [ "$target" = proxy ] || [ -z "$host" ] || proxy_args+=(--proxy-host "$host=$target")
    done <<<"$network"
fi
fault_args=()
[ -f "$sites/faults.txt" ] && fault_args=(--faults "$sites/faults.txt")
# tls.txt beside the sites: "SITE=HOST,..." lines make those sites speak
# HTTPS with certificates of the project's test authority (made in OUT), whose
# root the machine finds as local-sites-ca.pem ([Certificates] Roots names it).
if [ -f "$sites/tls.txt" ]; then
    while IFS= read -r line; do
        line=${line%$'\r'}
        case "$line" in ''|'#'*) continue ;; esac
        fault_args+=(--tls "$line")
    done <"$sites/tls.txt"
    fault_args+=(--authority "$out/authority")
fi
ports=$out/ports.txt
rm -f "$ports"
${keep_sites:+setsid} "$bin/sites/kpm-sites" "${site_args[@]}" "${proxy_args[@]}" "${fault_args[@]}" \
    --log "$out/requests.log" --posts "$out/posts" --ports-file "$ports" >"$out/sites.out" 2>&1 </dev/null &
server=$!
[ -n "$keep_sites" ] || trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -s "$ports" ] && break; sleep 0.1; done
[ -s "$ports" ] || { echo "== the sites server did not start:"; cat "$out/sites.out"; exit 1; }
if [ -f "$out/authority/ca.pem" ]; then
    # The machine trusts the local sites' root, as a computer its root store.
    cp "$out/authority/ca.pem" "$machine/local-sites-ca.pem"
    grep -qi '^[[:space:]]*\[Certificates\]' "$machine/machine.ini" ||
        printf '\r\n[Certificates]\r\nRoots=local-sites-ca.pem\r\n' >>"$machine/machine.ini"
fi
for name in $(sed -n 's/^.*=[[:space:]]*site:\([A-Za-z0-9_.-]*\).*$/\1/p' <<<"$network" | sort -u); do
    grep -q "^$name=" "$ports" || echo "NOTE: machine.ini sends hosts to site '$name', which $sites_src does not have: they are unreachable"
done

if [ -n "$keep_sites" ]; then
    { cat "$ports"; echo "# pid=$server"
      echo "# kpm-sites ${site_args[*]} ${proxy_args[*]} ${fault_args[*]} --log $out/requests.log --posts $out/posts"
    } >"$out/sites.txt"
fi

{
# What the checker makes of the machine before the pass: its summary and warnings.
set +e
"$bin/kpmdwld-check" --now "$now" "$machine" >"$out/check.txt" 2>&1
set -e
echo "== The checker at $now (whole report: $out/check.txt)"
sed -n '1,/^$/{/^$/d;p}' "$out/check.txt"
sed -n '/^\[warnings\]/,/^$/{/^$/d;/^\[/d;p}' "$out/check.txt"
echo "== Pass on $machine_src at $now${frozen:+ (frozen clock)}; local sites: $(tr '\n' ' ' <"$ports")"
touch "$out/before"
set +e
"$bin/kpmdwld-sim" --now "$now" "${frozen[@]}" --sites-ports "$ports" "$machine"
code=$?
set -e
echo "== Exit code: $code"

log=$(find "$machine/drives" -name 'wppatchmanagementDownload_*_patchlog.log' -newer "$out/before" | head -n 1)
if [ -n "$log" ]; then
    echo "== Activity log: ${log#"$machine"/}"
    tr -d '\r' <"$log"
else
    echo "== No activity log was written."
fi
echo "== Files the pass fetched and kept (the black list and the product list went to Temp, which every pass removes at its end)"
find "$machine/drives" -type f -newer "$out/before" ! -name '*.log' ! -iname 'SchPatch.ini' ! -name 'DwldURL.txt' \
    ! -name 'DownloadStatus.ini' ! -name 'TPUpdates.xml' | sort |
    while read -r f; do printf '  %s (%s bytes)\n' "${f#"$machine"/drives/}" "$(stat -c %s "$f")"; done
echo "== Requests the local sites answered (site, method, host, path, query, status, bytes)"
cat "$out/requests.log"
echo "== Documents posted to the management site (encrypted posts decrypted with kpmdwld-encdec decrypt-post)"
for f in "$out"/posts/*; do
    [ -f "$f" ] || continue
    echo "  ${f##*/}:"
    if grep -q 'CDATA' "$f"; then
        "$bin/kpmdwld-encdec" decrypt-post "$f" - | sed 's/^/    /'
    else
        sed 's/^/    /' "$f"
    fi
    echo
done
for name in SchPatch.ini TPUpdates.xml; do
    f=$(find "$machine/drives" -iname "$name" | head -n 1)
    [ -n "$f" ] || continue
    echo "== ${name%.*} record: ${f#"$machine"/}"
    tr -d '\r' <"$f"
done
[ -z "$keep_sites" ] || echo "== The sites keep running: ports and proxy settings in $out/sites.txt (kill $server to stop them)"
echo "== Everything is in $out"
} 2>&1 | tee "$out/story.txt"
