// The download and archive stand-ins' services on a Windows machine (a Wine
// prefix): WinINet moves the bytes and files are written beside their
// destination, then renamed into place. The behaviour on top (JobDownload,
// the background downloads, the zip component) is the one the simulated
// machine runs.
//
// Host names go through the network map of %KPM_STANDINS_DIR%\network.ini
// (C:\KPMStandins\network.ini when the variable is not set):
//
//   [Network]                    the rules of standins/network_map.h; with
//   gateway.example.lan=127.0.0.1:8080   this section present, a host no rule
//                                names is unreachable, as on the simulated machine
//   [Downloads]
//   StallSeconds=30              a transfer that receives nothing this long fails
//
// Without the file, or without its [Network] section, URLs are used as they
// are when they name this machine (a test's 127.0.0.1 URLs); any other host
// is not found. WinINet is opened for direct connections only: the system's
// proxy settings play no part.
#pragma once

#include <memory>
#include <string>

#include "standins/network_map.h"
#include "standins/transfer.h"

namespace standins::win32 {

struct NetworkSettings {
    bool mapped = false;        // a [Network] section exists: only its hosts are reachable
    NetworkMap map;
    unsigned stallSeconds = 30;
    std::string error;          // a line of network.ini that could not be read; every transfer then fails
};

// %KPM_STANDINS_DIR% without a final "\", or C:\KPMStandins.
std::string standinsFolder();

// Reads the network.ini at `iniPath` (ANSI Windows path); a missing file gives
// the defaults: no map, 30 seconds.
NetworkSettings readNetworkSettings(const std::string& iniPath);
// The same from the text of such a file.
NetworkSettings parseNetworkSettings(const std::string& iniText, const std::string& fileName);

// A host whose transports read standinsFolder()\network.ini afresh each time.
std::shared_ptr<StandinHost> newWin32StandinHost();
// A host with fixed settings.
std::shared_ptr<StandinHost> newWin32StandinHost(const NetworkSettings& settings);

}  // namespace standins::win32
