#!/usr/bin/env bash
# wine-download-pass.sh --exe KPMDwld.exe --standins KPMStandins.dll --cipher KEncDec.dll
#                       --kdowfile KDowFile.dll --kgnmd5 KGnMD5.dll [--sites kpm-sites]
#                       [--sim kpmdwld-sim] [--work DIR] [--offline]
#
# A whole pass of the real KPMDwld.exe (64-bit under wine64, or the shipping
# 32-bit one under the 32-bit loader in the same 64-bit prefix) that fetches its
# files from the loopback sites server (kpm-sites, started with
# scripts/sites-fixture.sh), on a managed computer's first pass (no
# "SchPatch.ini", a Microsoft schedule in MSUpd.xml):
#   gateway  http://gateway.example.lan:8080 (VORNMobile.ini [Download]), mapped
#            by the stand-ins' network.ini; it answers 404 for the black list
#   dc       http://127.0.0.1:PORT/updates (VornUpdates DownLoadSite), reached
#            by the system's URLDownloadToFileA; it serves wblist.zip
#   updates  http://update.vornsoft.com, mapped; it serves the stand-in
#            KDowFile.dll (--kdowfile) as /kScc/KDowFile.dll
#   manage   http://manage.vornsoft.com and manage2.vornsoft.com (the demo's
#            web-post configuration), mapped; it answers the encrypted posts
# The pass fetches KDowFile.dll through the download object, tries the
# gateway's black list three times, falls back to the data center's archive
# and unpacks it with the zip object. Checked: exit code 0, "Temp" removed,
# KDowFile.dll in the program folder (the served bytes), wblist.zip in the
# program folder only when the data center's second attempt ran, no
# temporary download files left, and the sites' request log:
#   3 x gateway GET /wblist/PatchBlackList.txt 404 (Host gateway.example.lan:8080)
#   1 x dc      GET /updates/wblist/wblist.zip 200
#   1 x updates GET /kScc/KDowFile.dll 200         (Host update.vornsoft.com)
#   2 x manage  POST (the black-list request and the status report, encrypted)
# The Microsoft scan runs online (with --offline: the probe page is missing,
# and the scan uses the gateway's "wsusscn2.cab", the same catalogue): the probe page answers (Wine reaches
# www.microsoft.com through the computer's proxy setting, the sites server's
# proxy), the update agent stand-in's catalogue lists three updates; the
# partner's list blocks one, the gateway serves the second, Microsoft
# (download.windowsupdate.com) the third, which the gateway lacks. The policy
# values and the classes the pass's regsvr32 registered are compared too.
# The same day's third-party schedule makes the pass fetch the product list
# too: the gateway's library answers 404 for /pm/pdlist.zip, the data
# center's /updates/wblist/pdlist.zip arrives through the download object.
# Then the demo's product list is assessed against the products the demo
# computer has (the same registry keys on both sides: both views and the
# user's own hive): Firefox's installer comes through the gateway, Zoom's
# (installed for the user) from the vendor's site (cdn.zoom.us, mapped),
# both verified with the maker's checksum library (--kgnmd5); Acrobat Reader
# is up to date, Notepad++'s version unknown.
# With --sim, the same computer (its files as they were before the pass, its
# registry key, the same host map) then makes the same pass on the simulated
# machine at the same moment, against the same sites: the two activity logs
# (without date-times; 8.3 aliases compared as "~"), the files left in the
# program folder and the requests each pass made must be the same.
# The activity log and the request log stay in the work folder (printed).
# Exit status: 0 all passed, 1 a check failed, 2 usage, 77 skipped (no wine64
# or no kpm-sites).
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/wine-agent.sh"

exe="" standins="" cipher="" kdowfile="" kgnmd5="" sites="" sim="" work="" offline=""
take_options "exe standins cipher kdowfile kgnmd5 sites sim work offline!" "$@"
if [ -n "$sim" ] && [ ! -x "$sim" ]; then
  echo "NOTE: no simulated runner at $sim: the comparison with the simulated machine is left out"
  sim=""
fi
require_files "$exe" "$standins" "$cipher" "$kdowfile" "$kgnmd5"
find_wine64
pick_loader "$exe"
[ -n "$work" ] || work=$(mktemp -d /tmp/kpm-wine-download.XXXXXX)
work=$(realpath -m "$work")
rm -rf "$work" && mkdir -p "$work"

export WINEDEBUG=-all LC_ALL=C.UTF-8 WINEDLLOVERRIDES="mscoree,mshtml="
# Everything stays on loopback: no proxy of the caller's for Wine's URL library.
unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY all_proxy ALL_PROXY
export WINEPREFIX=$work/prefix

failures=0
fail() { echo "  FAIL: $*"; failures=$((failures + 1)); }
ok() { echo "  ok: $*"; }

# The sites: folders staged here, the server from sites-fixture.sh.
site=$work/site
mkdir -p "$site/gateway/wblist" "$site/gateway/pm" "$site/dc/updates/wblist" "$site/updates/kScc" "$site/manage" \
  "$site/microsoft/en-us" "$site/microsoft/c/msdownload/update/software/secu/2026/10" "$site/vendors/prod/6.2.11.50000/x64"
# The installers of the demo's third-party world: Firefox on the gateway, Zoom on its vendor's site.
cp "$root/examples/demo-sites/gateway/pm/Firefox Setup 132.0.1.exe" "$site/gateway/pm/"
cp "$root/examples/demo-sites/vendors/prod/6.2.11.50000/x64/ZoomInstallerFull.msi" "$site/vendors/prod/6.2.11.50000/x64/"
# The management site answers the black-list request and the status report.
printf 'KB890830' >"$site/manage/wppthmsbbllist.txt"
printf '1' >"$site/manage/wppthdwldinfo.txt"
# The black list: released after every update of the catalogue below.
printf 'Release Date=12/31/2099\r\nKB890830\r\n' >"$work/PatchBlackList.txt"
(cd "$work" && zip -q -X "$site/dc/updates/wblist/wblist.zip" PatchBlackList.txt)
# Microsoft: the connectivity probe's page (www.microsoft.com, through the
# computer's proxy under Wine) and the one patch the gateway lacks
# (download.windowsupdate.com); the gateway holds the other.
# With --offline Microsoft's web site lacks the page: no Internet, so the
# scan runs offline against the gateway's catalogue.
[ -z "$offline" ] && printf '<html>probe</html>' >"$site/microsoft/en-us/default.aspx"
office=c/msdownload/update/software/secu/2026/10/office2010-kb5030000-fullfile-x86-glb.exe
printf 'office patch from Microsoft' >"$site/microsoft/$office"
printf 'windows patch from the gateway' >"$site/gateway/pm/windows6.1-kb5031354-x64.msu"
# What the update agent finds missing: one update through the gateway, one
# bundle whose file only Microsoft has.
cat >"$work/update-catalog.xml" <<'CATALOG'
<updates>
  <update id="7d0e5a21-3b6c-4f0e-9a51-5031354a0001" revision="201" installed="0" deployed="2026-10-14" title="Security Update for Windows 7 (KB5031354)">
    <kb>5031354</kb>
    <category type="UpdateClassification" name="Security Updates"/>
    <category type="Product" name="Windows 7"/>
    <content url="http://download.windowsupdate.com/d/msdownload/update/software/secu/2026/10/windows6.1-kb5031354-x64.msu"/>
  </update>
  <update id="7d0e5a21-3b6c-4f0e-9a51-5030000a0003" revision="12" installed="0" deployed="2026-10-07" title="Security Update for Microsoft Office 2010 (KB5030000)">
    <kb>5030000</kb>
    <category type="UpdateClassification" name="Security Updates"/>
    <category type="Product" name="Office 2010"/>
    <update id="7d0e5a21-3b6c-4f0e-9a51-5030000a0103" revision="12" installed="0" deployed="2026-10-07" title="KB5030000 32-Bit Edition">
      <kb>5030000</kb>
      <content url="http://download.windowsupdate.com/c/msdownload/update/software/secu/2026/10/office2010-kb5030000-fullfile-x86-glb.exe"/>
    </update>
  </update>
  <update id="7d0e5a21-3b6c-4f0e-9a51-0890830a0005" revision="150" installed="0" deployed="2026-10-14" title="Malicious Software Removal Tool (KB890830)">
    <kb>890830</kb>
    <category type="UpdateClassification" name="Security Updates"/>
    <category type="Product" name="Windows 7"/>
    <content url="http://download.windowsupdate.com/c/msdownload/update/software/uprl/2026/10/windows-kb890830-x64-v5.130.exe"/>
  </update>
</updates>
CATALOG
cp "$work/update-catalog.xml" "$site/gateway/pm/wsusscn2.cab"
cp "$kdowfile" "$site/updates/kScc/KDowFile.dll"
demo_sites=$root/examples/demo-sites/dc/updates/wblist/pdlist.zip
# The demo's list, published as a publisher does: a key of this run's own,
# today's dates, signed and packed by kpmdwld-catalog; the computer trusts the key.
catalog=$root/build/linux-debug/kpmdwld-catalog
[ -x "$catalog" ] || { echo "wine-download-pass: no $catalog (build linux-debug first)"; exit 1; }
"$catalog" keygen "$work/list-key.pem" "$work/list-key.pub" >/dev/null &&
  "$catalog" publish --key "$work/list-key.pem" --serial 41 --issued "$(date +%Y-%m-%d)" \
    --valid-until "$(date -d '+30 days' +%Y-%m-%d)" --auoptions "$demo_sites/AUOptions.xml" \
    "$demo_sites/PDList.xml" "$site/dc/updates/wblist/pdlist.zip" >/dev/null ||
  { echo "wine-download-pass: the product list could not be published"; exit 1; }
printf '%s\n' '# The gateway has no black list.' 'gateway /wblist/PatchBlackList.txt 404' >"$site/faults.txt"
"$root/scripts/sites-fixture.sh" start "$work/sites" "$site" "$sites" --proxy - \
  --proxy-host www.microsoft.com=microsoft --proxy-host download.windowsupdate.com=microsoft \
  >"$work/sites-start.out" 2>&1
rc=$?
if [ $rc = 77 ]; then cat "$work/sites-start.out"; exit 77; fi
if [ $rc != 0 ]; then cat "$work/sites-start.out"; echo "wine-download-pass: the sites server did not start"; exit 1; fi
finish() {
  "$wineserver" -k >/dev/null 2>&1 || true
  "$root/scripts/sites-fixture.sh" stop "$work/sites" >/dev/null 2>&1
}
trap finish EXIT
port() { sed -n "s/^$1=//p" "$work/sites/ports.txt"; }
gw=$(port gateway) dc=$(port dc) upd=$(port updates) mng=$(port manage) ms=$(port microsoft) px=$(port proxy)
vd=$(port vendors)
echo "== sites: gateway $gw, dc $dc, updates $upd"

# The computer: the agent installed, its program folder without KDowFile.dll.
# The prefix's server, started first and kept five minutes past its last
# program, and its services stay up until finish (wineserver -k); it and the
# pass run at a raised priority where that is allowed (else nice says so and
# runs them as they are): the pass's own regsvr32 must have registered its
# DLL within the pass's one-second pause (see docs/windows-build.md).
mkdir -p "$WINEPREFIX"
nice -n -10 "$wineserver" -p300 </dev/null >/dev/null 2>&1
boot_prefix
# The sites server's proxy as the computer's: it sends Microsoft's names to the
# local "microsoft" site.
use_internet_proxy "127.0.0.1:$px"
drive_c=$WINEPREFIX/drive_c
install_win='C:\Program Files\VORN\VORNMobile'
install=$drive_c/Program\ Files/VORN/VORNMobile
prog=$install/BaseComponents/PatchManagement
prog_win="$install_win\\BaseComponents\\PatchManagement"
mkdir -p "$prog"
cp "$exe" "$prog/KPMDwld.exe"
cp "$work/list-key.pub" "$prog/PDListKeys.pem"
cp "$cipher" "$prog/KEncDec.dll"
cp "$kgnmd5" "$prog/KGnMD5.dll"
# The demo computer's web-post configuration, and its Microsoft schedule
# widened to every day, all day: the pass runs whenever the test does.
demo_install="$root/examples/demo-machine/drives/C/Program Files/VORN/VORNMobile"
sed -e 's#<WeekDays>[^<]*</WeekDays>#<WeekDays>1,2,3,4,5,6,7</WeekDays>#' \
    -e 's#<FromTime>[^<]*</FromTime>#<FromTime>00:00</FromTime>#' \
    -e 's#<ToTime>[^<]*</ToTime>#<ToTime>23:59</ToTime>#' \
    "$demo_install/BaseComponents/PatchManagement/MSUpd.xml" >"$prog/MSUpd.xml"
sed -e 's#<WeekDays>[^<]*</WeekDays>#<WeekDays>1,2,3,4,5,6,7</WeekDays>#' \
    -e 's#<FromTime>[^<]*</FromTime>#<FromTime>00:00</FromTime>#' \
    -e 's#<ToTime>[^<]*</ToTime>#<ToTime>23:59</ToTime>#' \
    "$root/examples/demo-sources/Autosch_ddmmyyyy.xml.template" >"$prog/Autosch_$(date +%d%m%Y).xml"
mkdir -p "$install/Configuration"
cp "$demo_install/Configuration/wpConfig.xml" "$install/Configuration/wpConfig.xml"
printf '%s\r\n' \
  '[ProxySettings]' 'ProxyIP=' 'ProxyPort=' 'ProxyUserName=' 'ProxyPassword=' 'IsEncrypt=1' \
  '[DCConnURL]' "ControllerPSite=http://127.0.0.1:$dc" "ControllerSSite=http://127.0.0.1:$dc/" \
  '[VornUpdates]' "DownLoadSite=http://127.0.0.1:$dc/updates" \
  '[Download]' 'PMDownload=http://gateway.example.lan:8080/pm' 'WBListDownload=http://gateway.example.lan:8080/wblist' \
  >"$install/VORNMobile.ini"
key='HKLM\SOFTWARE\Wow6432Node\VORNOD'
set_sz_values "$key" "InstallationPath=$install_win" regID=R7 SiteID=S1 MemberID=M1 Type=W \
  || fail "the agent's registry values did not take"
# The system's name and service pack, the same on both sides and in both
# views: a prefix that can run 32-bit programs has them, one that cannot may not.
for view in 32 64; do
  for pair in 'ProductName=Windows 7 Professional' 'CSDVersion=Service Pack 1'; do
    "$wine64" reg add 'HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion' /v "${pair%%=*}" /d "${pair#*=}" \
      /reg:$view /f >/dev/null 2>&1 || fail "reg add ${pair%%=*} ($view-bit view)"
  done
done
# Windows' own Automatic Updates option, still on (4): the pass turns it off.
"$wine64" reg add 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\WindowsUpdate\Auto Update' /v AUOptions \
  /t REG_DWORD /d 4 /f >/dev/null 2>&1 || fail "reg add AUOptions"
install_standins "$standins" "$install" "$install_win" || fail "regsvr32 of the stand-in COM server"
# The demo computer's other vendors' products, as its registry lists them
# (the user's hive is Wine's own user, S-1-5-21-0-0-0-1000).
awk '/^; Products of other vendors/ { on = 1 } on' "$root/examples/demo-machine/registry.reg" >"$work/products.part"
printf 'Windows Registry Editor Version 5.00\r\n\r\n' | cat - "$work/products.part" >"$work/products.reg"
import_reg "$work/products.reg" 'HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Mozilla Firefox 131.0.3 (x64 en-US)' \
  || fail "the demo's products did not import into the prefix"
# The host names of the pass, as the download and zip objects see them. The
# data center is named by address; it is mapped too, for the download object's
# second attempt.
printf '%s\r\n' '[Network]' "gateway.example.lan:8080=127.0.0.1:$gw" "update.vornsoft.com=127.0.0.1:$upd" \
  "127.0.0.1:$dc=127.0.0.1:$dc" "manage.vornsoft.com=127.0.0.1:$mng" "manage2.vornsoft.com=127.0.0.1:$mng" \
  "download.windowsupdate.com=127.0.0.1:$ms" "www.microsoft.com=127.0.0.1:$ms" "cdn.zoom.us=127.0.0.1:$vd" \
  '[Downloads]' 'StallSeconds=30' \
  >"$drive_c/KPMStandins/network.ini"
cp "$work/update-catalog.xml" "$drive_c/KPMStandins/update-catalog.xml"

# The window's edges (the minute after midnight, the last one of the day) are waited out.
seconds=$((10#$(date +%H) * 3600 + 10#$(date +%M) * 60 + 10#$(date +%S)))
if [ "$seconds" -ge $((86400 - 120)) ]; then sleep $((86400 - seconds + 65)); fi
if [ "$seconds" -lt 65 ]; then sleep $((65 - seconds)); fi

# The simulated computer: the same files as they are now, the same key and map.
if [ -n "$sim" ]; then
  simm=$work/sim-machine
  mkdir -p "$simm/drives/C/Program Files/VORN" "$simm/drives/C/WINDOWS/system32"
  cp -r "$install" "$simm/drives/C/Program Files/VORN/"
  printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' '[HKEY_LOCAL_MACHINE\SOFTWARE\Wow6432Node\VORNOD]' \
    '"InstallationPath"="C:\\Program Files\\VORN\\VORNMobile"' '"regID"="R7"' '"SiteID"="S1"' '"MemberID"="M1"' \
    '"Type"="W"' '' '[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\wuauserv]' \
    '"Start"=dword:00000003' '' \
    '[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\WindowsUpdate\Auto Update]' \
    '"AUOptions"=dword:00000004' '' \
    '[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion]' \
    '"ProductName"="Windows 7 Professional"' '"CSDVersion"="Service Pack 1"' '' \
    '[HKEY_LOCAL_MACHINE\SOFTWARE\Wow6432Node\Microsoft\Windows NT\CurrentVersion]' \
    '"ProductName"="Windows 7 Professional"' '"CSDVersion"="Service Pack 1"' '' >"$simm/registry.reg"
  cat "$work/products.part" >>"$simm/registry.reg"
  { printf '%s\r\n' '[Machine]' "ExePath=$prog_win\\KPMDwld.exe" 'Is64BitOS=1'
    tr -d '\r' <"$drive_c/KPMStandins/network.ini" | sed 's/$/\r/'; } >"$simm/machine.ini"
  cp "$work/update-catalog.xml" "$simm/update-catalog.xml"
fi

echo "== the pass"
now=$(date +%Y-%m-%dT%H:%M:%S)
start=$SECONDS
(cd "$prog" && timeout 600 nice -n -10 "$winexe" "$prog_win\\KPMDwld.exe" >"$work/wine.out" 2>&1)
rc=$?
echo "  pass ran in $((SECONDS - start)) s, exit code $rc"
[ "$rc" = 0 ] && ok "exit code 0" || fail "exit code $rc"

log_src="$prog/ApplicationLog/wppatchmanagementDownload_R7_patchlog.log"
win_log=$work/wine.log
requests=$work/sites/requests.log
if [ -f "$log_src" ]; then cp "$log_src" "$win_log"; ok "activity log"; else fail "no activity log"; : >"$win_log"; fi
entries() { tr -d '\r' <"$win_log" | grep -v '^#' | cut -f2-; }  # without the date-time

# The files the pass leaves.
[ ! -e "$prog/Temp" ] && ok "\"Temp\" removed" || fail "\"Temp\" is still there: $(ls "$prog/Temp" 2>/dev/null | tr '\n' ' ')"
if [ -f "$prog/KDowFile.dll" ] && cmp -s "$prog/KDowFile.dll" "$kdowfile"; then
  ok "KDowFile.dll in the program folder, the served bytes"
else
  fail "KDowFile.dll missing or not the served file"
fi
if entries | grep -q 'Attempt 2nd Downloading again'; then
  [ -f "$prog/wblist.zip" ] && ok "wblist.zip in the program folder (second attempt ran)" \
    || fail "the second attempt ran but wblist.zip is not in the program folder"
else
  [ ! -e "$prog/wblist.zip" ] && ok "no wblist.zip in the program folder (no second attempt)" \
    || fail "wblist.zip in the program folder without a second attempt"
fi
leftovers=$(find "$install" -name '*.~kpm*' 2>/dev/null)
[ -z "$leftovers" ] && ok "no temporary download files" || fail "temporary files left: $leftovers"
grep -q $'\tDownloaded Successfully from the DataCenter' <(entries) \
  && ok "log: Downloaded Successfully from the DataCenter" || fail "the log does not say the data center's archive arrived"
grep -q 'Unable to download Black List file' <(entries) \
  && fail "the log says the black list could not be had" || ok "log: no \"Unable to download Black List file\""
last=$(entries | tail -n 1 | cut -f4)
[ "$last" = "Application stopped." ] && ok "last entry: Application stopped." || fail "last entry: $last"

# The requests: site, method, Host, path, query, status, bytes (tabs).
count() {  # SITE PATH STATUS [HOST]
  awk -F'\t' -v s="$1" -v p="$2" -v c="$3" -v h="${4:-}" \
    '$1 == s && $2 == "GET" && $4 == p && $6 == c && (h == "" || $3 == h)' "$requests" | wc -l
}
check_count() {  # EXPECTED SITE PATH STATUS [HOST]
  local n
  n=$(count "$2" "$3" "$4" "${5:-}")
  [ "$n" = "$1" ] && ok "$1 x $2 GET $3 $4${5:+ (Host $5)}" || fail "$n x $2 GET $3 $4${5:+ (Host $5)}, expected $1"
}
check_count 3 gateway /wblist/PatchBlackList.txt 404 gateway.example.lan:8080
check_count 1 dc /updates/wblist/wblist.zip 200
check_count 1 updates /kScc/KDowFile.dll 200 update.vornsoft.com
check_count 1 gateway /pm/pdlist.zip 404 gateway.example.lan:8080
check_count 1 dc /updates/wblist/pdlist.zip 200
posts=$(awk -F'\t' '$1 == "manage" && $2 == "POST" && $6 == 200 { print $4 "?" $5 }' "$requests" | tr '\n' ' ')
[ "$posts" = "/tfr_wppthmsbbllist.asp?ec=256 /tfr_wppthdwldinfo.asp?mmid=M1&sid=S1&rid=R7&rty=W&ec=256 " ] \
  && ok "2 x manage POST, the black-list request and the status report" || fail "manage POSTs: $posts"
# The online scan (the probe page answered) and its two selected patches: one
# from the gateway, the other, which the gateway lacks, from Microsoft; the
# partner's black list holds the third.
if [ -z "$offline" ]; then
  check_count 1 microsoft /en-us/default.aspx 200 www.microsoft.com
  check_count 0 gateway /pm/wsusscn2.cab 200 gateway.example.lan:8080
else
  check_count 1 microsoft /en-us/default.aspx 404 www.microsoft.com
  check_count 1 gateway /pm/wsusscn2.cab 200 gateway.example.lan:8080
  grep -q $'\tCab files added successfull for offline scanning.' <(entries) \
    && ok "log: the gateway's catalogue scanned offline" || fail "the log does not say the catalogue was added"
fi
check_count 1 gateway /pm/windows6.1-kb5031354-x64.msu 200 gateway.example.lan:8080
check_count 1 microsoft "/$office" 200 download.windowsupdate.com
components=$prog/Components
[ "$(cat "$components/windows6.1-kb5031354-x64.msu" 2>/dev/null)" = 'windows patch from the gateway' ] &&
  [ "$(cat "$components/office2010-kb5030000-fullfile-x86-glb.exe" 2>/dev/null)" = 'office patch from Microsoft' ] &&
  ok "both patches in Components, the served bytes" || fail "the patches in Components: $(ls "$components" 2>/dev/null | tr '\n' ' ')"
grep -q $'\tThis Patch is Black listed by Partner\t890830' <(entries) \
  && ok "log: KB890830 black-listed by the partner" || fail "the log does not say KB890830 is black-listed"
grep -q $'\tDownload Complete..File copied\t.*pdlist.zip' <(entries) \
  && ok "log: the product list arrived" || fail "the log does not say the product list arrived"
check_count 1 gateway "/pm/Firefox%20Setup%20132.0.1.exe" 200 gateway.example.lan:8080
awk -F'\t' '$1 == "vendors" && $4 == "/prod/6.2.11.50000/x64/ZoomInstallerFull.msi" && $6 == 200' "$requests" | grep -q . \
  && ok "vendors GET /prod/6.2.11.50000/x64/ZoomInstallerFull.msi 200 (Host cdn.zoom.us)" || fail "Zoom's installer was not fetched from its site"
appcomp=$prog/Components/Appcomp
cmp -s "$appcomp/Firefox Setup 132.0.1.exe" "$site/gateway/pm/Firefox Setup 132.0.1.exe" &&
  cmp -s "$appcomp/ZoomInstallerFull.msi" "$site/vendors/prod/6.2.11.50000/x64/ZoomInstallerFull.msi" &&
  ok "both installers verified in Components\\Appcomp, the served bytes" || fail "the installers in Appcomp: $(ls "$appcomp" 2>/dev/null | tr '\n' ' ')"
for state in "Update needed: Mozilla Firefox (64-bit)" "Up to date: Adobe Acrobat Reader (32-bit)" \
             "Update needed: Zoom Workplace (per user)" "Version unknown: Notepad++ (64-bit)"; do
  grep -q $'\t'"$state"$'\t' <(entries) && ok "log: $state" || fail "the log does not say: $state"
done

# The download status report carries what differs between the two computers
# and start moments: the disk's sizes, the pass's start time (and so the
# encrypted document), and its trap's last system error code. The refused
# connectivity probe's trap: Wine's MSXML raises its error without the text
# Windows' MSXML gives ("The download of the specified resource has
# failed."), and the last system error code is whatever the computer last set.
status_report_normal() {
  sed -E -e 's#<(drivespace|freedrivespace|dctime)>[^<]*</(drivespace|freedrivespace|dctime)>#<\1>*</\2>#g' \
         -e 's#(<wppthdwldinfo><!\[CDATA\[)[^]]*\]\]>#\1*]]>#g' \
         -e 's#^(ModWebPost\tFncWebPostDownloadStatus\tERROR\t[^\t]*\t[^\t]*\t)[0-9]+#\1*#' \
         -e 's#^(ModComman\tChkInterNetConnectivity\tERROR\t[^\t]*\t[^\t]*\t)[^\t]*\t[0-9]+#\1*\t*#' \
         -e 's# ChkInterNetConnectivity : [0-9]+ : # ChkInterNetConnectivity : * : #g'
}
if [ -n "$sim" ]; then
  echo "== the same pass on the simulated machine"
  wine_requests=$(wc -l <"$requests")
  "$sim" --now "$now" "$simm" >"$work/sim.out" 2>&1
  sim_rc=$?
  [ "$sim_rc" = "$rc" ] && ok "exit codes $rc" || fail "exit codes: Wine $rc, simulated $sim_rc"
  normal_log() {  # entries without the date-time; 8.3 aliases as "~"
    [ -f "$1" ] || { echo "(no log)"; return; }
    tr -d '\r' <"$1" | grep -v '^#' | cut -f2- | sed -E 's/[A-Za-z0-9_$-]*~[A-Za-z0-9_]+/~/g' | status_report_normal
  }
  normal_log "$win_log" >"$work/wine.entries"
  normal_log "$simm/drives/C/Program Files/VORN/VORNMobile/BaseComponents/PatchManagement/ApplicationLog/wppatchmanagementDownload_R7_patchlog.log" >"$work/sim.entries"
  diff -u "$work/sim.entries" "$work/wine.entries" >"$work/log.diff" \
    && ok "activity logs match ($(wc -l <"$work/wine.entries") entries)" \
    || { fail "activity logs differ (- simulated, + Wine):"; sed 's/^/    /' "$work/log.diff" | head -n 60; }
  listing() { (cd "$1" && find . -path ./ApplicationLog -prune -o -type f -printf '%p %s\n' | sort); }
  listing "$prog" >"$work/wine.files"
  listing "$simm/drives/C/Program Files/VORN/VORNMobile/BaseComponents/PatchManagement" >"$work/sim.files"
  diff -u "$work/sim.files" "$work/wine.files" >"$work/files.diff" && ok "program folders match" \
    || { fail "program folders differ:"; sed 's/^/    /' "$work/files.diff"; }
  # The proxy's own lines are left out: Wine goes through the computer's
  # proxy, the simulated machine's request object straight to the site.
  cut -f1,2,3,4,6,7 "$requests" | head -n "$wine_requests" | grep -v '^proxy' >"$work/wine.requests"
  cut -f1,2,3,4,6,7 "$requests" | tail -n "+$((wine_requests + 1))" >"$work/sim.requests"
  diff -u "$work/sim.requests" "$work/wine.requests" >"$work/requests.diff" \
    && ok "the sites saw the same $(wc -l <"$work/wine.requests") requests" \
    || { fail "the requests differ:"; sed 's/^/    /' "$work/requests.diff"; }

  # What the pass changed in the registry: the policy values, and the maker's
  # classes its own regsvr32 calls registered (class id and server path).
  wine_value() {  # KEY NAME ("" for the default value) [VIEW: 32 or 64]
    local flag=(/v "$2"); [ -z "$2" ] && flag=(/ve)
    [ -n "${3:-}" ] && flag+=("/reg:$3")
    "$wine64" reg query "$1" "${flag[@]}" 2>/dev/null | tr -d '\r' |
      awk -F'    ' 'NF >= 4 { v = $4; sub(/^0x/, "", v); print v }' | tail -n 1
  }
  sim_value() {  # KEY NAME [VIEW]: the value as registry.reg holds it, unescaped (a dword in hex)
    # The simulated program is the 32-bit one: its classes are in the 32-bit view.
    local key=$1
    local classes='HKEY_CLASSES_ROOT\CLSID\'
    if [ "${3:-}" = 32 ] && [[ $key == "$classes"* ]]; then
      key='HKEY_CLASSES_ROOT\Wow6432Node\CLSID\'${key#"$classes"}
    fi
    # Through the environment: awk -v would read the backslashes as escapes.
    tr -d '\r' <"$simm/registry.reg" | K="[$key]" N="$2" awk '
      BEGIN { key = ENVIRON["K"]; name = ENVIRON["N"] }
      /^\[/ { inkey = (tolower($0) == tolower(key)); next }
      inkey { n = (name == "" ? "@" : "\"" name "\"");
              if (tolower(substr($0, 1, length(n) + 1)) == tolower(n "=")) {
                v = substr($0, length(n) + 2); sub(/^dword:0*/, "", v); gsub(/^"|"$/, "", v);
                gsub(/\\\\/, "\\", v); print v } }' | tail -n 1
  }
  registry_facts() {  # FUNCTION VIEW: one "key name = value" line per fact; the classes read in VIEW
    local getter=$1 view=$2 progid clsid
    echo "AUOptions = $($getter 'HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\WindowsUpdate\Auto Update' AUOptions)"
    # Written through the 64-bit view whatever the program's bitness: the 32-bit view's copy stays unset.
    local in32
    in32=$($getter 'HKEY_LOCAL_MACHINE\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\WindowsUpdate\Auto Update' AUOptions)
    echo "AUOptions in the 32-bit view = ${in32:-unset}"
    echo "wuauserv Start = $($getter 'HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\wuauserv' Start)"
    for progid in kWbPost.WebPost kDwnJob.JobDownload ChilkatZip2.Chilkatzip2; do
      clsid=$($getter "HKEY_CLASSES_ROOT\\$progid\\CLSID" '')
      echo "$progid = $clsid $($getter "HKEY_CLASSES_ROOT\\CLSID\\$clsid\\InprocServer32" '' "$view")"
    done
  }
  # The classes the program's own regsvr32 registered, in the program's view:
  # a 32-bit regsvr32 writes HKCR\Wow6432Node\CLSID on 64-bit Windows.
  registry_facts wine_value "$bits" >"$work/wine.registry"
  registry_facts sim_value 32 >"$work/sim.registry"
  if grep -q ' = *$' "$work/wine.registry"; then
    fail "a registry value is missing under Wine:"; sed 's/^/    /' "$work/wine.registry"
  elif diff -u "$work/sim.registry" "$work/wine.registry" >"$work/registry.diff"; then
    ok "registry: policy values and the registered classes match ($(wc -l <"$work/wine.registry") facts)"
  else
    fail "the registries differ:"; sed 's/^/    /' "$work/registry.diff"
  fi
fi

if [ "$failures" -gt 0 ]; then
  echo "  --- the activity log:"; tr -d '\r' <"$win_log" | sed 's/^/  | /'
  echo "  --- the requests:"; sed 's/^/  | /' "$requests"
fi
echo "Windows activity log: $win_log"
echo "request log:          $requests"
if [ "$failures" -gt 0 ]; then
  echo "wine-download-pass: $failures checks FAILED (work folder kept: $work)"
  exit 1
fi
# The activity log and the request log stay; the prefix goes.
drop_prefixes "$WINEPREFIX"
echo "wine-download-pass: all checks passed"
exit 0
