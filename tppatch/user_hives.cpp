#include "tppatch/user_hives.h"

#include <algorithm>
#include <memory>
#include <set>

#include "config/ini.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "tppatch/log_text.h"

namespace kpm {

namespace {

using platform::Hive;
using platform::RegView;

constexpr const char* kModule = "ModTPMAssess";
constexpr const char* kProc = "fncUserHives";
constexpr const char* kProfileList = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

// A real user's SID: not a service account, not a "_Classes" hive, not a
// ProfileList leftover such as "S-1-5-21-…-1001.bak".
bool isUserSid(const std::string& name) {
    const std::string l = LCase(name);
    if (l.rfind("s-1-5-21-", 0) != 0 && l.rfind("s-1-12-1-", 0) != 0) return false;
    return std::all_of(l.begin() + 2, l.end(), [](char c) { return (c >= '0' && c <= '9') || c == '-'; });
}

std::vector<std::string> subKeys(platform::RegKey& key) {
    std::vector<std::string> names;
    std::string name;
    for (uint32_t i = 0; key.enumSubKey(i, name) == platform::regerr::Success; ++i) names.push_back(name);
    return names;
}

// ProfileImagePath is REG_EXPAND_SZ, as a rule "%SystemDrive%\Users\name".
std::string expandProfilePath(std::string path) {
    const std::string system = platform::sys().systemDirectory();  // C:\WINDOWS\system32
    const std::string windows = system.substr(0, system.find_last_of('\\'));
    const std::pair<std::string, std::string> variables[] = {{"%systemdrive%", system.substr(0, 2)},
                                                             {"%systemroot%", windows}, {"%windir%", windows}};
    for (const auto& [name, value] : variables)
        for (size_t at; (at = LCase(path).find(name)) != std::string::npos;) path.replace(at, name.size(), value);
    return path;
}

std::string loadError(long r) {
    switch (r) {
    case platform::regerr::SharingViolation: return "error 32: another process holds it open";
    case platform::regerr::FileNotFound: return "error 2: the file is not there";
    case platform::regerr::BadDatabase: return "error 1009: the file is no registry hive";
    case platform::regerr::PrivilegeNotHeld: return "error 1314: the backup and restore privileges are not held";
    default: return "error " + std::to_string(r);
    }
}

}  // namespace

const std::vector<UserHive>& UserHives::list() {
    if (read_) return users_;
    read_ = true;
    std::set<std::string> loaded;
    std::unique_ptr<platform::RegKey> root;
    if (platform::registry().openKey(Hive::Users, "", platform::regaccess::Read, RegView::Default, root) ==
        platform::regerr::Success) {
        for (const auto& name : subKeys(*root)) {
            // A hive mounted by a pass that was killed before it unloaded it
            // stays mounted (Windows keeps it past the process): the user
            // would then log on with a temporary profile.
            if (LCase(name).rfind("kpmdwld_", 0) == 0) {
                const long r = platform::registry().unloadUserHive(name);
                WriteW3CLog(kModule, kProc, r == platform::regerr::Success ? "INFO" : "ERROR",
                            "User hive left loaded by an earlier pass: unloaded", LogText(name),
                            r == platform::regerr::Success ? "" : "error " + std::to_string(r));
                continue;
            }
            if (!isUserSid(name)) continue;
            users_.push_back({name, name, "", ""});
            loaded.insert(LCase(name));
        }
    }
    std::unique_ptr<platform::RegKey> profiles;
    if (platform::registry().openKey(Hive::LocalMachine, kProfileList, platform::regaccess::Read, RegView::View64,
                                     profiles) != platform::regerr::Success)
        return users_;
    for (const auto& sid : subKeys(*profiles)) {
        if (!isUserSid(sid) || loaded.count(LCase(sid))) continue;
        std::unique_ptr<platform::RegKey> profile;
        platform::RegValue path;
        if (platform::registry().openKey(Hive::LocalMachine, std::string(kProfileList) + "\\" + sid,
                                         platform::regaccess::Read, RegView::View64, profile) != platform::regerr::Success ||
            profile->queryValue("ProfileImagePath", path) != platform::regerr::Success ||
            !path.isText())
            continue;  // no profile folder: the user never logged on here
        UserHive user{sid, "KPMDwld_" + sid, expandProfilePath(path.text()) + "\\NTUSER.DAT", ""};
        const long r = platform::registry().loadUserHive(user.key, user.file);
        if (r == platform::regerr::Success) {
            WriteW3CLog(kModule, kProc, "INFO", "User not logged on: hive loaded for the assessment", sid, LogText(user.file));
        } else {
            user.failure = loadError(r);
            WriteW3CLog(kModule, kProc, "ERROR", "User not logged on: hive could not be loaded", sid, LogText(user.file),
                        user.failure);
        }
        users_.push_back(std::move(user));
    }
    return users_;
}

UserHives::~UserHives() {
    for (const auto& user : users_) {
        if (user.file.empty() || !user.failure.empty()) continue;
        try {
            const long r = platform::registry().unloadUserHive(user.key);
            if (r != platform::regerr::Success)
                WriteW3CLog(kModule, kProc, "ERROR", "User hive could not be unloaded", user.sid, LogText(user.file),
                            "error " + std::to_string(r));
        } catch (...) {
            // A destructor throws nothing: a hive left loaded is unloaded by the next pass.
        }
    }
}

}  // namespace kpm
