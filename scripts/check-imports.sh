#!/usr/bin/env bash
# check-imports.sh OBJDUMP FILE...
# Fails when a Windows executable or DLL imports anything but the DLLs that
# every Windows installation has (no MinGW runtime DLLs, no maker DLLs).
set -u
objdump=$1; shift
# Lower-case names of Windows' own DLLs that the program may import.
system_dlls=" kernel32.dll user32.dll gdi32.dll advapi32.dll shell32.dll shlwapi.dll ole32.dll
 oleaut32.dll msvcrt.dll ws2_32.dll wsock32.dll urlmon.dll wininet.dll winhttp.dll version.dll
 dbghelp.dll crypt32.dll bcrypt.dll rpcrt4.dll secur32.dll iphlpapi.dll netapi32.dll userenv.dll
 psapi.dll comctl32.dll comdlg32.dll ntdll.dll "
system_dlls=$(echo " $system_dlls " | tr '\n' ' ')
status=0
for f in "$@"; do
  if [ ! -f "$f" ]; then echo "check-imports: $f: no such file"; status=1; continue; fi
  imports=$("$objdump" -p "$f" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | tr -d '\r')
  if [ -z "$imports" ]; then echo "check-imports: $f: no import table found"; status=1; continue; fi
  bad=""
  for dll in $imports; do
    case "$system_dlls" in *" $dll "*) ;; *) bad="$bad $dll" ;; esac
  done
  if [ -n "$bad" ]; then
    echo "check-imports: $f imports non-system DLLs:$bad"
    status=1
  else
    echo "check-imports: $f imports only system DLLs: $(echo $imports)"
  fi
done
exit $status
