#!/usr/bin/env bash
# Passes killed with SIGKILL at random moments, then one pass to the end.
# The demo machine downloads four patch files, the black list, the download
# library and the product list from local sites, the gateway sending slowly
# (so a pass takes seconds and a kill can land anywhere in it). After each
# kill: registry.reg, machine.ini and SchPatch.ini are whole (header first,
# every line complete). After the final pass on the next day: it ends with
# "Application stopped.", every patch file is listed in DwldURL.txt and
# DownloadStatus.ini and holds exactly what the gateway served, no file on
# the drive named like a served file holds anything else, "Temp" and the
# staged transfers are gone, and registry.reg and machine.ini are what a
# pass on a machine that was never killed leaves.
# Usage: killed_pass.sh KPMDWLD_SIM KPM_SITES SOURCE_DIR [KILLS] (at most 14)
# KPM_KILL_SEED repeats a run's kill moments (the seed is printed).
set -u
sim=$1 sites=$2 src=$3 kills=${4:-6}
work=$(mktemp -d)
[ -z "${KPM_KEEP:-}" ] || echo "work folder: $work"
trap '"$src/scripts/sites-fixture.sh" stop "$work/sites" >/dev/null 2>&1; [ -n "${KPM_KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
seed=${KPM_KILL_SEED:-$$}
RANDOM=$seed
echo "kill seed $seed"

# The sites: the demo's, four patch files of 600 KB on a gateway that sends 400 KB/s.
kbs="5031371 5031372 5031373 5031374"
cp -r "$src/examples/demo-sites" "$work/site"
find "$work/site" -name .keep -delete
"$src/scripts/zip-folders.sh" "$work/site" || fail "zip"
printf 'release date=11/01/2026\r\n' >"$work/site/gateway/wblist/PatchBlackList.txt"
mkdir -p "$work/site/microsoft/en-us" && printf '<html>probe</html>' >"$work/site/microsoft/en-us/default.aspx"
for kb in $kbs; do head -c 600000 /dev/urandom >"$work/site/gateway/pm/windows6.1-kb$kb-x64.msu"; done
echo "gateway * slow 400000" >"$work/site/faults.txt"
"$src/scripts/sites-fixture.sh" start "$work/sites" "$work/site" "$sites" >/dev/null || fail "sites server"
port() { sed -n "s/^$1=//p" "$work/sites/ports.txt"; }

# The demo machine, its Microsoft window open every day, the two updates missing.
machine() {
  local m=$1 pm
  cp -r "$src/examples/demo-machine" "$m"
  pm="$m/drives/C/Program Files/VORN/VORNMobile/BaseComponents/PatchManagement"
  sed -i 's#<WeekDays>[^<]*</WeekDays>#<WeekDays>1,2,3,4,5,6,7</WeekDays>#' "$pm/MSUpd.xml"
  {
    echo '<updates>'
    for kb in $kbs; do
      echo "<update id=\"u$kb\" revision=\"201\" deployed=\"2026-10-14\" title=\"KB$kb\"><kb>$kb</kb>"
      echo '<category type="UpdateClassification" name="Security Updates"/><category type="Product" name="Windows 7"/>'
      echo "<content url=\"http://download.windowsupdate.com/d/windows6.1-kb$kb-x64.msu\"/></update>"
    done
    echo '</updates>'
  } >"$m/update-catalog.xml"
  # The demo's [Network] names its sites; --sites-ports says where they run.
  printf '\r\n[Downloads]\r\nStallSeconds=5\r\n' >>"$m/machine.ini"
}
m=$work/m
machine "$m"
pm="$m/drives/C/Program Files/VORN/VORNMobile/BaseComponents/PatchManagement"

# A file written whole: its first line is the format's, its last line ends.
whole() {  # FILE FIRST-LINE-PATTERN
  [ ! -e "$1" ] && return 0
  head -n 1 "$1" | grep -q "$2" || return 1
  [ ! -s "$1" ] || [ "$(tail -c 1 "$1" | od -An -c | tr -d ' ')" = '\n' ]
}

for i in $(seq "$kills"); do
  delay=$((RANDOM % 4000))
  # A day each: a pass that got to its end has made the day's download.
  "$sim" --now "2026-11-$((14 + i))T16:10:00" --sites-ports "$work/sites/ports.txt" "$m" >"$work/out.$i" 2>&1 &
  pid=$!
  sleep "$(printf '%d.%03d' $((delay / 1000)) $((delay % 1000)))"
  kill -KILL "$pid" 2>/dev/null && killed="killed after ${delay} ms" || killed="had ended by ${delay} ms"
  wait "$pid" 2>/dev/null
  echo "pass $i $killed"
  whole "$m/registry.reg" '^Windows Registry Editor' || fail "registry.reg cut short after pass $i"
  whole "$m/machine.ini" '^\(;\|\[\)' || fail "machine.ini cut short after pass $i"
  whole "$pm/SchPatch.ini" '^\[' || fail "SchPatch.ini cut short after pass $i"
done

# What a kill mid-transfer leaves staged, whatever the kills above hit.
true & dead=$!
wait "$dead"
mkdir -p "$m/.transfers" && echo part >"$m/.transfers/download-$dead-1.part"

# The next day's pass, to its end, on the killed machine and on one never killed.
echo "# gateway at full speed" >"$work/sites/faults.txt"
final="2026-11-$((15 + kills))T16:10:00"
machine "$work/ref"
"$sim" --now "$final" --sites-ports "$work/sites/ports.txt" "$work/ref" >"$work/ref.out" 2>&1 || fail "reference pass: $(cat "$work/ref.out")"
"$sim" --now "$final" --sites-ports "$work/sites/ports.txt" "$m" >"$work/final.out" 2>&1 || fail "final pass: $(cat "$work/final.out")"

log="$pm/ApplicationLog/wppatchmanagementDownload_R1024_patchlog.log"
last=$(tr -d '\r' <"$log" | tail -n 1 | cut -f5)
[ "$last" = "Application stopped." ] || fail "the final pass ended with: $last"
comp="$pm/Components"
for kb in $kbs; do
  f="windows6.1-kb$kb-x64.msu"
  cmp -s "$comp/$f" "$work/site/gateway/pm/$f" || fail "$f is not the file the gateway served"
  grep -q "Components\\\\$f" "$pm/DwldURL.txt" || fail "$f is not in DwldURL.txt"
  grep -q "^$f=" "$comp/DownloadStatus.ini" || fail "$f is not in DownloadStatus.ini"
done
extra=$(ls "$comp" | grep -v -e '^windows6.1-kb50313[0-9][0-9]-x64.msu$' -e '^DownloadStatus.ini$')
[ -z "$extra" ] || fail "other files in Components: $extra"
while IFS= read -r -d '' f; do
  served=$(find "$work/site" -type f -name "$(basename "$f")" | head -n 1)
  [ -z "$served" ] || cmp -s "$f" "$served" || fail "$(basename "$f") on the drive differs from the served file"
done < <(find "$m/drives" -type f -print0)
[ ! -e "$pm/Temp" ] || fail "Temp is still there"
[ -z "$(ls -A "$m/.transfers" 2>/dev/null)" ] || fail "staged transfers left: $(ls "$m/.transfers")"
cmp -s "$m/registry.reg" "$work/ref/registry.reg" || fail "registry.reg differs from a pass never killed: $(diff "$work/ref/registry.reg" "$m/registry.reg")"
cmp -s "$m/machine.ini" "$work/ref/machine.ini" || fail "machine.ini differs from a pass never killed"
grep -q "^LDwnRDate=11/$((15 + kills))/2026 " "$pm/SchPatch.ini" || fail "SchPatch.ini has no stamp for the final pass"
echo "killed passes: $kills kills, then a whole pass: files whole, registry and machine.ini intact"
