# wine-agent.sh: sourced by the Wine scripts (scripts/wine-*.sh, bench/wine-*.sh):
# their options, finding wine64, and what every managed computer they make in
# a prefix shares (install_standins and use_internet_proxy need $wine64 and
# WINEPREFIX set).

# boot_prefix: the first boot of $WINEPREFIX (its server already started by
# the caller, or started here). A boot cut short leaves a prefix in which Wine
# starts no program ("could not load kernel32.dll"): it is made again, up to
# three times, so that one bad boot does not fail a whole step.
boot_prefix() {
  local try
  for try in 1 2 3; do
    "$wine64" wineboot --init >/dev/null 2>&1
    "$wine64" cmd /c exit 0 >/dev/null 2>&1 && return 0
    echo "wineboot of $WINEPREFIX, try $try: Wine starts no program in it; making it again"
    "$wineserver" -k >/dev/null 2>&1 || true
    rm -rf "$WINEPREFIX" && mkdir -p "$WINEPREFIX"
    nice -n -10 "$wineserver" -p300 </dev/null >/dev/null 2>&1
  done
  echo "wineboot of $WINEPREFIX failed three times"
  return 1
}

# install_standins STANDINS_DLL INSTALL_DIR INSTALL_WIN
# The stand-in COM server registered from C:\KPMStandins (Windows' classes the
# prefix lacks, and the rest), and copies of it under the maker's DLL names in
# the agent's install folder, left unregistered: the pass's component check
# registers them with its own regsvr32. Fails when the server does not register.
install_standins() {
  local standins=$1 install=$2 install_win=$3 dll maker_dlls=()
  mkdir -p "$WINEPREFIX/drive_c/KPMStandins"
  cp "$standins" "$WINEPREFIX/drive_c/KPMStandins/KPMStandins.dll"
  # Registered by the regsvr32 of the server's own bitness (a 32-bit server
  # in the 32-bit view of the classes, where a 32-bit program looks).
  "${winexe:-$wine64}" regsvr32 -s 'C:\KPMStandins\KPMStandins.dll' >/dev/null 2>&1 || return 1
  for dll in kWbPost.dll kDwnJob.dll Chilkatzip2.dll; do
    cp "$standins" "$install/$dll"
    maker_dlls+=("$install_win\\$dll")
  done
  # The server's own registration named their classes too.
  "${winexe:-$wine64}" regsvr32 /u /s "${maker_dlls[@]}" >/dev/null 2>&1
  return 0
}

# use_internet_proxy HOST:PORT
# The computer's Internet settings: every host but loopback through that
# proxy. Wine's own HTTP stack (MSXML's requests, the system's URL download)
# then never looks a name up outside the machine.
use_internet_proxy() {
  local inet='HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings'
  "$wine64" reg add "$inet" /v ProxyEnable /t REG_DWORD /d 1 /f >/dev/null 2>&1
  "$wine64" reg add "$inet" /v ProxyServer /d "$1" /f >/dev/null 2>&1
  "$wine64" reg add "$inet" /v ProxyOverride /d '127.0.0.1;localhost;<local>' /f >/dev/null 2>&1
}

# set_sz_values KEY NAME=DATA...: string values under KEY (made if missing);
# fails when any of them did not take.
set_sz_values() {
  local key=$1 value rc=0
  shift
  for value in "$@"; do
    "$wine64" reg add "$key" /v "${value%%=*}" /d "${value#*=}" /f >/dev/null 2>&1 || rc=1
  done
  return $rc
}

# import_reg FILE KEY: FILE's keys into the prefix's registry, checked: KEY
# must be there afterwards. The file is read from drive C: (whatever Windows
# name the host's folders would get), and since regedit says nothing and
# exits 0 whatever happened, a missing KEY is tried again twice, then
# reported (with what regedit printed) and the function fails.
import_reg() {
  local file=$1 key=$2 try out
  cp "$file" "$WINEPREFIX/drive_c/kpm-import.reg" || return 1
  for try in 1 2 3; do
    out=$("$wine64" regedit /S 'C:\kpm-import.reg' 2>&1)
    if "$wine64" reg query "$key" >/dev/null 2>&1; then rm -f "$WINEPREFIX/drive_c/kpm-import.reg"; return 0; fi
    echo "import of $(basename "$file"), try $try: $key is missing afterwards${out:+; regedit: $out}" >&2
    sleep 2
  done
  return 1
}

# export_reg KEY FILE: KEY and its subkeys as regedit writes them (by way of
# drive C:, as above); FILE is missing when the key is.
export_reg() {
  rm -f "$WINEPREFIX/drive_c/kpm-export.reg" "$2"
  "$wine64" regedit /E 'C:\kpm-export.reg' "$1" >/dev/null 2>&1
  if [ -f "$WINEPREFIX/drive_c/kpm-export.reg" ]; then mv "$WINEPREFIX/drive_c/kpm-export.reg" "$2"; fi
}

# take_options "NAME..." ARGS...: each "--NAME VALUE" among ARGS sets the
# caller's variable NAME (declared beforehand); a NAME listed as "NAME!" is a
# flag that "--NAME" sets to 1. Anything else prints the calling script's
# synopsis (its header up to the first bare "#") and exits 2.
take_options() {
  local names=" $1 " opt
  shift
  while [ $# -gt 0 ]; do
    opt=${1#--}
    if [ "$opt" != "$1" ] && [[ $names == *" $opt! "* ]]; then
      printf -v "$opt" 1
      shift
    elif [ "$opt" != "$1" ] && [[ $names == *" $opt "* ]] && [ $# -ge 2 ]; then
      printf -v "$opt" '%s' "$2"
      shift 2
    else
      sed -n '2,/^#$/{/^#$/d;s/^# \{0,1\}/usage: /;s/^usage:  /       /;p}' "$0" >&2
      exit 2
    fi
  done
}

# require_files FILE...: each named and present, else the script exits 2.
require_files() {
  local f
  for f in "$@"; do
    [ -n "$f" ] && [ -f "$f" ] || { echo "$(basename "$0" .sh): missing input '$f'" >&2; exit 2; }
  done
}

# find_wine64: sets wine64 and wineserver, or the script says it is skipped (77).
# pick_loader EXE: the Wine loader that runs EXE, in $winexe, and its
# bitness in $bits: wine64 for a 64-bit program; the 32-bit loader (Debian's
# wine32:i386, beside wine64) for a 32-bit one, which then runs in the 64-bit
# prefix as on 64-bit Windows. Exits 77 (skipped) when that loader is missing.
pick_loader() {
  local at machine
  at=$(od -An -tu4 -j60 -N4 "$1" | tr -d ' ')
  machine=$(od -An -tx2 -j $((at + 4)) -N2 "$1" | tr -d ' ')
  case "$machine" in
    8664) winexe=$wine64 bits=64 ;;
    014c)
      winexe=$(dirname "$wine64")/wine bits=32
      [ -x "$winexe" ] || { echo "SKIPPED: no 32-bit Wine loader ($winexe): wine32:i386 is not installed"; exit 77; } ;;
    *) echo "$1 is no x86 or x64 Windows program"; exit 2 ;;
  esac
}

find_wine64() {
  wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
  [ -x "$wine64" ] || { echo "SKIPPED: wine64 not available"; exit 77; }
  wineserver=$(dirname "$wine64")/wineserver
}

# drop_prefixes PREFIX...: the Wine prefixes of a step that passed (over a
# gigabyte each) removed, their servers stopped first; KPM_KEEP_MACHINES keeps them.
drop_prefixes() {
  [ -n "${KPM_KEEP_MACHINES:-}" ] && return 0
  local p
  for p in "$@"; do
    [ -d "$p" ] || continue
    WINEPREFIX=$p "$wineserver" -k >/dev/null 2>&1
    rm -rf "$p"
  done
}
