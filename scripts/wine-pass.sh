#!/usr/bin/env bash
# wine-pass.sh --exe KPMDwld.exe [--standins KPMStandins.dll] [--cipher KEncDec.dll]
#              [--holder hold_open.exe] [--work DIR]
#
# Whole passes of the real (64-bit) KPMDwld.exe under wine64, in a fresh Wine
# prefix set up as a managed computer:
#   HKLM\SOFTWARE\VORNOD (32-bit view: Wow6432Node) with InstallationPath,
#   regID, SiteID, MemberID and Type; the install folder with VORNMobile.ini;
#   the program in <install>\BaseComponents\PatchManagement with the stand-in
#   KEncDec.dll; the stand-in COM server registered (regsvr32 -s).
# Scenarios:
#   managed       two passes: exit code 0, the activity log's header once,
#                 entries of 8 tab-separated fields with CR LF, each pass ending
#                 with "Application stopped."; the agent key untouched and
#                 nothing created in the 64-bit view
#   concurrent    twenty starts at once: one pass; the others silent or
#                 logging "Previous Instance Running"
#   unregistered  no regID: the pass ends at once with exit code 0 and no log
#   locked        (with --holder) the files a pass rewrites held open without
#                 sharing by another process during one pass: the activity log
#                 with "SchPatch.ini" (a record of another day), then
#                 "DwldURL.txt"; the pass ends (exit code 0, no unhandled
#                 exception), leaves the held bytes as they were, and the pass
#                 after the release rewrites them as a pass without the hold does
# Exit status: 0 all passed, 1 a check failed, 77 skipped (no wine64).
set -u
. "$(dirname "$0")/wine-agent.sh"

exe="" standins="" cipher="" holder="" work=""
take_options "exe standins cipher holder work" "$@"
require_files "$exe"
find_wine64
pick_loader "$exe"
[ -n "$work" ] || work=$(mktemp -d /tmp/kpm-wine-pass.XXXXXX)
work=$(realpath -m "$work")

export WINEDEBUG=-all
# Dates and times in English (United States), whatever the caller's locale.
export LC_ALL=C.UTF-8
export WINEDLLOVERRIDES="mscoree,mshtml="
failures=0
fail() { echo "  FAIL: $*"; failures=$((failures + 1)); }
ok() { echo "  ok: $*"; }

# A fresh prefix with the agent installed; $1 = scenario name, $2 = regID ("" for none).
prepare() {
  export WINEPREFIX=$work/$1/prefix
  rm -rf "$work/$1"
  mkdir -p "$work/$1"
  # The server first, kept five minutes past its last program: it and the
  # services stay up until finish; it and the passes run at a raised priority
  # where allowed. A pass's own regsvr32 then starts fast (docs/windows-build.md).
  mkdir -p "$WINEPREFIX"
  nice -n -10 "$wineserver" -p300 </dev/null >/dev/null 2>&1
  boot_prefix
  drive_c=$WINEPREFIX/drive_c
  install_win='C:\Program Files\VORN\VORNMobile'
  install=$drive_c/Program\ Files/VORN/VORNMobile
  prog=$install/BaseComponents/PatchManagement
  prog_win="$install_win\\BaseComponents\\PatchManagement"
  mkdir -p "$prog"
  cp "$exe" "$prog/KPMDwld.exe"
  [ -n "$cipher" ] && cp "$cipher" "$prog/KEncDec.dll"
  # The download library is in place, so no fetch of it falls through to the
  # system's URL download of the maker's host (a name outside this machine).
  printf 'MZ' >"$prog/KDowFile.dll"
  if [ -n "$standins" ]; then
    install_standins "$standins" "$install" "$install_win" || fail "regsvr32 of the stand-in COM server"
    # No host is mapped: the download objects reach nothing, as on a simulated machine without [Network].
    printf '%s\r\n' '[Network]' >"$drive_c/KPMStandins/network.ini"
  fi
  printf '%s\r\n' \
    '[ProxySettings]' 'ProxyIP=' 'ProxyPort=' 'ProxyUserName=' 'ProxyPassword=' 'IsEncrypt=1' \
    '[DCConnURL]' 'ControllerPSite=http://127.0.0.1:18080' 'ControllerSSite=http://127.0.0.1:18081/' \
    '[VornUpdates]' 'DownLoadSite=http://127.0.0.1:18082/updates' \
    '[Download]' 'PMDownload=http://127.0.0.1:18082/pm' > "$install/VORNMobile.ini"
  local key='HKLM\SOFTWARE\Wow6432Node\VORNOD'
  set_sz_values "$key" "InstallationPath=$install_win" ${2:+"regID=$2"} SiteID=S1 MemberID=M1 Type=W \
    || fail "the agent's registry values did not take"
}

# Runs one pass; sets $rc.
run_pass() {
  local start=$SECONDS
  (cd "$prog" && timeout 600 nice -n -10 "$winexe" "$prog_win\\KPMDwld.exe" >"$work/$1.out" 2>&1)
  rc=$?
  echo "  pass ran in $((SECONDS - start)) s, exit code $rc"
}

finish() {
  "$wineserver" -k >/dev/null 2>&1 || true
}

check_log() {  # $1 = log file, $2 = passes expected
  local log=$1 passes=$2
  if [ ! -f "$log" ]; then fail "no activity log at ${log#$drive_c/}"; return; fi
  ok "activity log ${log#$drive_c/}"
  local l1 l2 l3 l4
  l1=$(sed -n 1p "$log"); l2=$(sed -n 2p "$log"); l3=$(sed -n 3p "$log"); l4=$(sed -n 4p "$log")
  [ "$l1" = $'#Software: VORN.AgentMonitoring.KPMDwld\r' ] && ok "header #Software" || fail "header line 1: ${l1%$'\r'}"
  [ "$l2" = $'#Version: 5.0.19\r' ] && ok "header #Version" || fail "header line 2: ${l2%$'\r'}"
  [[ "$l3" == "#Date: "*$'\r' ]] && ok "header ${l3%$'\r'}" || fail "header line 3: ${l3%$'\r'}"
  [ "$l4" = $'#Fields: dtime\tform\tmodule\ttype\tval1\tval2\tval3\r' ] && ok "header #Fields" || fail "header line 4: ${l4%$'\r'}"
  local headers
  headers=$(grep -c '^#Software:' "$log")
  [ "$headers" = 1 ] && ok "one header for $passes passes" || fail "$headers headers"
  local lines nocr entries badtabs stopped
  lines=$(wc -l < "$log")
  nocr=$(grep -vc $'\r$' "$log")
  [ "$nocr" = 0 ] && [ "$(tail -c 2 "$log" | od -An -c | tr -d ' ')" = '\r\n' ] \
    && ok "all $lines lines end with CR LF" || fail "$nocr lines without CR LF"
  entries=$(grep -vc '^#' "$log")
  badtabs=$(grep -v '^#' "$log" | awk -F'\t' 'NF != 8' | wc -l)
  [ "$entries" -gt 0 ] && [ "$badtabs" = 0 ] && ok "$entries entries, each with 7 tabs" || fail "$badtabs of $entries entries without exactly 7 tabs"
  stopped=$(grep -v '^#' "$log" | awk -F'\t' '$5 == "Application stopped.\r" || $5 == "Application stopped."' | wc -l)
  [ "$stopped" = "$passes" ] && ok "\"Application stopped.\" $stopped times" || fail "\"Application stopped.\" $stopped times, expected $passes"
  local last
  last=$(grep -v '^#' "$log" | tail -n 1 | awk -F'\t' '{print $5}' | tr -d '\r')
  [ "$last" = "Application stopped." ] && ok "last entry: Application stopped." || fail "last entry's message: $last"
  local dtime
  dtime=$(grep -v '^#' "$log" | head -n 1 | cut -f1)
  [[ "$dtime" =~ ^[0-9]{1,2}/[0-9]{1,2}/[0-9]{4}\ [0-9]{1,2}:[0-9]{2}:[0-9]{2}\ [AP]M$ ]] \
    && ok "entry time $dtime" || fail "entry time '$dtime' is not the general date"
}

echo "== scenario: managed (two passes)"
prepare managed R1
log="$prog/ApplicationLog/wppatchmanagementDownload_R1_patchlog.log"
run_pass managed
[ "$rc" = 0 ] && ok "exit code 0" || fail "exit code $rc"
run_pass managed-2
[ "$rc" = 0 ] && ok "second pass exit code 0" || fail "second pass exit code $rc"
check_log "$log" 2
regid=$("$wine64" reg query 'HKLM\SOFTWARE\Wow6432Node\VORNOD' /v regID 2>/dev/null | tr -d '\r' | awk '$1 == "regID" {print $3}')
[ "$regid" = R1 ] && ok "agent key keeps regID=R1" || fail "agent key's regID is '$regid'"
if "$wine64" reg query 'HKLM\SOFTWARE\VORNOD' >/dev/null 2>&1; then
  fail "a VORNOD key appeared in the 64-bit view"
else
  ok "nothing written to the 64-bit view's SOFTWARE\\VORNOD"
fi
if [ "$failures" -gt 0 ] && [ -f "$log" ]; then echo "  --- the log:"; tr -d '\r' < "$log" | sed 's/^/  | /'; fi
finish

echo "== scenario: twenty starts at once"
prepare concurrent R3
log="$prog/ApplicationLog/wppatchmanagementDownload_R3_patchlog.log"
# Started together, while the prefix's server runs: the first holds the
# executable's mutex for its whole pass; the others leave without a trace, or,
# started before it took the mutex, see it among the processes.
(cd "$prog" && for i in $(seq 20); do
   timeout 600 "$winexe" "$prog_win\\KPMDwld.exe" >"$work/concurrent-$i.out" 2>&1 &
 done; wait)
passes=$(grep -c $'\tApplication stopped.' "$log" 2>/dev/null)
starts=$(grep -c $'\tmodMain\tMain\tINFO\t' "$log" 2>/dev/null)
previous=$(grep -c $'\tPrevious Instance Running' "$log" 2>/dev/null)
[ "$passes" = 1 ] && ok "one pass of twenty starts" || fail "$passes passes of twenty starts"
[ "$starts" = $((1 + previous)) ] && ok "$previous other starts logged \"Previous Instance Running\", the rest nothing" \
  || fail "$starts starts logged, $previous saw a previous instance"
finish

echo "== scenario: unregistered (no regID)"
before=$failures
prepare unregistered ""
run_pass unregistered
[ "$rc" = 0 ] && ok "exit code 0" || fail "exit code $rc"
found=$(find "$drive_c" -name 'wppatchmanagementDownload_*' 2>/dev/null | head -n 1)
[ -z "$found" ] && ok "no activity log written" || fail "a log was written: ${found#$drive_c/}"
finish

# Files of the pass held open by another process, without sharing: Windows'
# sharing modes are real here (the simulated machine has none).
if [ -n "$holder" ]; then
  echo "== scenario: locked (files held open by another process)"
  locked_start=$failures
  prepare locked R5
  demo="$(dirname "$0")/../examples/demo-machine/drives/C/Program Files/VORN/VORNMobile"
  # Wine's own HTTP stack goes to a closed loopback port, never to a name.
  use_internet_proxy 127.0.0.1:9
  mkdir -p "$install/Configuration"
  cp "$demo/Configuration/wpConfig.xml" "$install/Configuration/wpConfig.xml"
  # Due every day, all day, with nothing to download (type 4): the pass
  # stores the schedule in "SchPatch.ini" and stamps its run there. One line,
  # so the entry that quotes it keeps the log's columns.
  printf '%s' '<patchmanagement><autopatchdeploy><ScheduleType>4</ScheduleType><MonthDates></MonthDates>' \
    '<MonthWeek>0</MonthWeek><WeekDays>1,2,3,4,5,6,7</WeekDays><FromTime>00:00</FromTime><ToTime>23:59</ToTime>' \
    '</autopatchdeploy><updateclasses><upcls name="Security Updates" blscope="BL" products="Windows 7"/>' \
    '</updateclasses></patchmanagement>' >"$prog/MSUpd.xml"
  cp "$holder" "$drive_c/hold_open.exe"
  log="$prog/ApplicationLog/wppatchmanagementDownload_R5_patchlog.log"
  log_win="$prog_win\\ApplicationLog\\wppatchmanagementDownload_R5_patchlog.log"
  sch="$prog/SchPatch.ini"
  ini_keys() { tr -d '\r' <"$1" | awk -F= '/^\[/ {s = $0} /=/ {print s tolower($1)}' | sort; }
  # Starts the holder on the given Windows paths; true once it holds them all.
  hold() {
    rm -f "$drive_c/hold-ready" "$drive_c/hold-release"
    "$winexe" 'C:\hold_open.exe' 'C:\hold-ready' 'C:\hold-release' "$@" >"$work/holder.out" 2>&1 &
    holder_pid=$!
    local i
    for i in $(seq 600); do
      [ -f "$drive_c/hold-ready" ] && return 0
      kill -0 "$holder_pid" 2>/dev/null || break
      sleep 0.1
    done
    return 1
  }
  release() {
    : >"$drive_c/hold-release"
    wait "$holder_pid"
    local hrc=$?
    [ "$hrc" = 0 ] && ok "the holder released the files" || fail "the holder ended with $hrc: $(cat "$work/holder.out")"
  }
  # The pass ended on its own, with a normal end.
  ended() {  # $1 = pass name
    [ "$rc" = 0 ] && ok "$1: exit code 0" || fail "$1: exit code $rc"
    if grep -qi 'unhandled exception\|unhandled page fault' "$work/$1.out"; then
      fail "$1: $(grep -i -m1 unhandled "$work/$1.out")"
    fi
  }
  # The ERROR entries logged since line $1, the date left out.
  errors_since() { tail -n +"$(($1 + 1))" "$log" | tr -d '\r' | cut -f2-8 | awk -F'\t' '$3 == "ERROR"'; }
  # Up to the error number: the code a system call left last is incidental there.
  same_errors() { [ "$(errors_since "$1" | cut -f1-5)" = "$(echo "$ref_errors" | cut -f1-5)" ]; }
  # The next day's pass: the stored record is another day's, so the pass rewrites it.
  next_day() { sed -i 's/^DT=[^\r]*/DT=2020-1-1/I' "$sch"; }

  run_pass locked-first
  ended locked-first
  ref_keys=$(ini_keys "$sch")
  # The status post finds no site: the same ERROR entries on every such pass.
  ref_errors=$(errors_since 0)
  grep -qi '^LDwnRDate=' "$sch" && ok "SchPatch.ini: $(echo $ref_keys)" || fail "the first pass stamped no run in SchPatch.ini"
  next_day

  echo "  -- the activity log and SchPatch.ini held"
  urls="$prog/DwldURL.txt"
  printf 'http://127.0.0.1:18082/pm/stale.exe\r\n' >"$urls"
  cp "$log" "$work/log.before"; cp "$sch" "$work/sch.before"
  if hold "$log_win" "$prog_win\\SchPatch.ini"; then
    run_pass locked-held
    ended locked-held
    cmp -s "$log" "$work/log.before" && ok "the held log is unchanged" || fail "the held log changed"
    cmp -s "$sch" "$work/sch.before" && ok "the held SchPatch.ini is unchanged" || fail "the held SchPatch.ini changed"
    [ -f "$urls" ] && [ ! -s "$urls" ] && ok "the pass went on without its log (DwldURL.txt started anew)" \
      || fail "the pass stopped early: DwldURL.txt not started anew"
    release
    before=$(wc -l <"$log")
    run_pass locked-after
    ended locked-after
    same_errors "$before" && ok "the first pass's ERROR entries, no other" \
      || fail "ERROR entries after the release: $(errors_since "$before")"
    [ "$(ini_keys "$sch")" = "$ref_keys" ] && ok "SchPatch.ini has the first pass's keys" \
      || fail "SchPatch.ini's keys: $(ini_keys "$sch" | tr '\n' ' ')"
    today=$(date +%Y-%-m-%-d)
    grep -qix "DT=$today"$'\r\\?' "$sch" && ok "SchPatch.ini rewritten: DT=$today" || fail "SchPatch.ini's DT: $(grep -i '^DT=' "$sch")"
  else
    fail "the holder did not take the log and SchPatch.ini: $(cat "$work/holder.out")"
    release
  fi

  echo "  -- DwldURL.txt held"
  next_day
  printf 'http://127.0.0.1:18082/pm/stale.exe\r\n' >"$urls"
  cp "$urls" "$work/urls.before"
  if hold "$prog_win\\DwldURL.txt"; then
    before=$(wc -l <"$log")
    run_pass locked-urls
    ended locked-urls
    cmp -s "$urls" "$work/urls.before" && ok "the held DwldURL.txt is unchanged" || fail "the held DwldURL.txt changed"
    # The list cannot be started anew: the pass goes to its error handler and closes down.
    errors=$(errors_since "$before")
    [ "$errors" = $'ModMain\tMain\tERROR\tIn Main.\t70\tPermission denied\t32' ] \
      && ok "logged: In Main. 70 Permission denied 32 (a sharing violation)" || fail "ERROR entries: $errors"
    release
    before=$(wc -l <"$log")
    run_pass locked-urls-after
    ended locked-urls-after
    same_errors "$before" && ok "the first pass's ERROR entries, no other" \
      || fail "ERROR entries after the release: $(errors_since "$before")"
    [ -f "$urls" ] && [ ! -s "$urls" ] && ok "DwldURL.txt started anew" || fail "DwldURL.txt not started anew"
  else
    fail "the holder did not take DwldURL.txt: $(cat "$work/holder.out")"
    release
  fi
  # Four passes logged (the one under the held log could not).
  check_log "$log" 4
  if [ "$failures" -gt "$locked_start" ] && [ -f "$log" ]; then echo "  --- the log:"; tr -d '\r' < "$log" | sed 's/^/  | /'; fi
  finish
fi

if [ "$failures" -gt 0 ]; then
  echo "wine-pass: $failures checks FAILED (prefixes kept in $work)"
  exit 1
fi
drop_prefixes "$work"/*/prefix
echo "wine-pass: all checks passed"
exit 0
