# wine-agent.sh: sourced by the Wine pass scripts; what every managed
# computer they make in a prefix shares. Needs $wine64 and WINEPREFIX set.

# install_standins STANDINS_DLL INSTALL_DIR INSTALL_WIN
# The stand-in COM server registered from C:\KPMStandins (Windows' classes the
# prefix lacks, and the rest), and copies of it under the maker's DLL names in
# the agent's install folder, left unregistered: the pass's component check
# registers them with its own regsvr32. Fails when the server does not register.
install_standins() {
  local standins=$1 install=$2 install_win=$3 dll maker_dlls=()
  mkdir -p "$WINEPREFIX/drive_c/KPMStandins"
  cp "$standins" "$WINEPREFIX/drive_c/KPMStandins/KPMStandins.dll"
  "$wine64" regsvr32 -s 'C:\KPMStandins\KPMStandins.dll' >/dev/null 2>&1 || return 1
  for dll in kWbPost.dll kDwnJob.dll Chilkatzip2.dll; do
    cp "$standins" "$install/$dll"
    maker_dlls+=("$install_win\\$dll")
  done
  # The server's own registration named their classes too.
  "$wine64" regsvr32 /u /s "${maker_dlls[@]}" >/dev/null 2>&1
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
