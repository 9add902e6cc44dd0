// Environment probes run before the Microsoft scan: the COM components the
// pass needs, the operating system, the update agent's version, the
// connectivity probe and the disk space.
#pragma once

#include <string>

namespace kpm {

// The page the connectivity probe asks for (a stable public page that answers 200).
inline constexpr const char* kConnectivityProbeUrl = "http://www.microsoft.com/en-us/default.aspx";

void RegisteDLL();
void Chk_Set_Prerequisites();
// "ProductName" or a name from the version table; sets environment.ServicePack.
std::string fOSName();
void ChkAutoUpdateVersion();
// True when the probe page answered 200 (through ProxyServer when one is set).
bool ChkInterNetConnectivity();
// Sets environment.DriveTotalMB/DriveFreeMB (and their texts) for a root such as "C:\".
void fncGetDiskSpace(const std::string& driveRoot);
// True when the drive of InstallPath has 1536 MB or less free.
bool fncLowDiskSpace();

}  // namespace kpm
