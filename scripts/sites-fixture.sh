#!/usr/bin/env bash
# sites-fixture.sh start DIR SITEFOLDER [KPM_SITES] [--proxy USER:PASS|-] [--proxy-host HOST=SITE ...]
# sites-fixture.sh stop DIR
#
# Starts and stops the loopback sites server (kpm-sites) for tests: a CTest
# fixture's setup and cleanup, or a script's.
#
# start: every folder below SITEFOLDER is served as a site of that name
#   (over HTTPS for those SITEFOLDER/tls.txt names, see below);
#   SITEFOLDER/faults.txt, when there is one, is copied to DIR/faults.txt and
#   given as the faults file (it is re-read while the server runs, so a test may
#   change the copy). The server runs in the background; start returns once
#   DIR/ports.txt holds a "NAME=PORT" line per site. Also in DIR: pid,
#   requests.log (one line per request), server.out.
#   The server is the KPM_SITES argument, else $KPM_SITES, else
#   build/linux-debug/sites/kpm-sites of this tree. --proxy also starts the
#   server's proxy (asking for USER:PASS unless '-'); ports.txt then has a
#   "proxy=PORT" line too; --proxy-host sends its requests for HOST to SITE.
# stop: ends the server DIR/pid names (SIGTERM) and waits for it. DIR's logs stay.
#
# Exit status: 0 done, 1 failed, 2 usage, 77 skipped (no kpm-sites built).
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
usage() { echo "usage: $0 start DIR SITEFOLDER [KPM_SITES] [--proxy USER:PASS|-] [--proxy-host HOST=SITE] | stop DIR" >&2; exit 2; }
[ $# -ge 2 ] || usage
action=$1 dir=$2

stop_server() {
  local pid
  [ -f "$dir/pid" ] || return 0
  pid=$(cat "$dir/pid")
  rm -f "$dir/pid"
  case "$pid" in ''|*[!0-9]*) return 0 ;; esac
  kill -TERM "$pid" 2>/dev/null || return 0
  for _ in $(seq 1 100); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  echo "sites-fixture: kpm-sites ($pid) did not stop on SIGTERM; killing it" >&2
  kill -KILL "$pid" 2>/dev/null || true
}

case "$action" in
start)
  [ $# -ge 3 ] || usage
  sitefolder=$3
  shift 3
  given="" proxy=()
  while [ $# -gt 0 ]; do
    case "$1" in
    --proxy) [ $# -ge 2 ] || usage; proxy+=(--proxy "$2"); shift 2 ;;
    --proxy-host) [ $# -ge 2 ] || usage; proxy+=(--proxy-host "$2"); shift 2 ;;
    *) given=$1; shift ;;
    esac
  done
  server=""
  for candidate in "$given" "${KPM_SITES:-}" "$root/build/linux-debug/sites/kpm-sites"; do
    if [ -n "$candidate" ] && [ -x "$candidate" ]; then server=$candidate; break; fi
  done
  if [ -z "$server" ]; then
    echo "SKIPPED: no kpm-sites built (give its path or set KPM_SITES)"
    exit 77
  fi
  [ -d "$sitefolder" ] || { echo "sites-fixture: no site folder $sitefolder" >&2; exit 1; }
  mkdir -p "$dir"
  dir=$(cd "$dir" && pwd)
  stop_server  # one left by an interrupted run
  rm -f "$dir/ports.txt" "$dir/requests.log" "$dir/faults.txt"
  args=()
  for site in "$sitefolder"/*/; do
    [ -d "$site" ] || continue
    site=${site%/}
    args+=(--site "$(basename "$site")=$(cd "$site" && pwd)")
  done
  [ ${#args[@]} -gt 0 ] || { echo "sites-fixture: no site folders in $sitefolder" >&2; exit 1; }
  if [ -f "$sitefolder/faults.txt" ]; then cp "$sitefolder/faults.txt" "$dir/faults.txt"; else : >"$dir/faults.txt"; fi
  # SITEFOLDER/tls.txt: "SITE=HOST[,HOST...]" lines; those sites speak HTTPS
  # with certificates of the test authority in DIR/authority (its root: ca.pem).
  if [ -f "$sitefolder/tls.txt" ]; then
    while IFS= read -r line; do
      case "$line" in ''|'#'*) continue ;; esac
      args+=(--tls "$line")
    done <"$sitefolder/tls.txt"
    args+=(--authority "$dir/authority")
  fi
  # Detached from the caller's output: ctest would otherwise wait for the
  # server to close the pipes it inherited.
  "$server" "${args[@]}" ${proxy[@]+"${proxy[@]}"} --faults "$dir/faults.txt" --log "$dir/requests.log" \
    --ports-file "$dir/ports.txt" </dev/null >"$dir/server.out" 2>&1 &
  pid=$!
  echo "$pid" >"$dir/pid"
  for _ in $(seq 1 200); do
    if [ -s "$dir/ports.txt" ]; then
      echo "sites-fixture: kpm-sites ($pid) serving from $sitefolder:"
      sed 's/^/  /' "$dir/ports.txt"
      exit 0
    fi
    if ! kill -0 "$pid" 2>/dev/null; then
      rm -f "$dir/pid"
      echo "sites-fixture: kpm-sites ended before listening:" >&2
      cat "$dir/server.out" >&2
      exit 1
    fi
    sleep 0.1
  done
  echo "sites-fixture: no ports file after 20 s" >&2
  stop_server
  exit 1
  ;;
stop)
  stop_server
  echo "sites-fixture: stopped"
  ;;
*) usage ;;
esac
