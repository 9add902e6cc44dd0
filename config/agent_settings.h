// The agent's identity and settings, read once per pass from the registry key
// "SOFTWARE\VORNOD" and the agent INI "VORNMobile.ini".
#pragma once

#include <string>

#include "platform/datetime.h"

namespace kpm {

struct AgentSettings {
    std::string InstallPath;  // trailing "\"
    std::string RegID, SiteID, MemberID, AgentType;
    std::string ProxyHost, ProxyPort, ProxyServer, ProxyUserName, ProxyPassword, IsEncrypt;
    std::string PrimarySiteURL, SecondarySiteURL;  // overwritten by the status posts
    std::string BlackListURL, DownLoadSite, PMDownloadURL;
    std::string RunStartTime;  // "MM/DD/YYYY h:m:s"
    std::string RunTimestamp;  // "yyyymmddhhmmss"
    std::string ComputerName;
    std::string StartupTrail;
};

inline AgentSettings agentSettings;

void InitializeEXE();
bool fncReadVORNMobileINI(const std::string& iniPath);
std::string DecryptString(const std::string& text);
// One key of the agent INI as its readers take it: a 500-character buffer,
// the first n characters (not trimmed).
std::string fncReadAgentIni(const std::string& section, const std::string& key, const std::string& file);
std::string fncGetComputerName();

// Time texts used across the program.
std::string fncRunStartTimeText(const platform::DateTime& t);  // 03/07/2026 9:5:7
std::string fncTimestampText(const platform::DateTime& t);     // 20260307090507
std::string fncStampText(const platform::DateTime& t);         // 03/07/2026 09:05:07

}  // namespace kpm
