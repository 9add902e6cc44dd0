// What the machine is: the operating system and service pack from the
// registry and the version call, then from WMI; and the prerequisites step
// that records them and sets the update policy.
#include <exception>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"
#include "wuenv/registry_policy.h"

namespace kpm {

namespace {

constexpr const char* kCurrentVersionKey = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// The version table, first match wins. Empty when the registry's
// "ProductName" stands; spMajor tells whether the service pack becomes the
// version call's major number.
std::string nameFromVersion(const platform::OsVersion& v, bool& spMajor) {
    spMajor = false;
    if (v.platformId == 2 && v.major == 5) {
        spMajor = true;
        if (v.minor == 1) return "Windows XP";
        if (v.minor == 2) return v.productType == 1 ? "Windows XP Version 2003" : "Windows Server 2003";
        return "Windows 2000";
    }
    if (v.platformId == 1 && v.major == 4 && v.minor == 90) return "Windows Millenium";
    if (v.platformId == 1 && v.major == 4 && v.minor == 10) return "Windows 98";
    if (v.platformId == 1 && v.minor == 0) return "Windows 95";
    if (v.platformId != 2 || v.major > 4) return {};
    spMajor = true;
    return "Windows NT ";
}

std::string textOrEmpty(const platform::Variant& v) { return v.isNull() ? std::string() : v.toString(); }

// WMI's view: the caption and service pack the posts and the selection use.
void probeWmi() {
    try {
        platform::Object wmi = platform::automation().getObject("winmgmts:");
        platform::Object systems = wmi.call("InstancesOf", "Win32_OperatingSystem").toObject();
        for (const platform::Variant& item : systems.items()) {
            platform::Object os = item.toObject();
            environment.OSName = textOrEmpty(os.get("Caption"));
            const std::string csd = textOrEmpty(os.get("Csdversion"));
            environment.ServicePackName =
                !csd.empty() ? csd : "Service Pack " + textOrEmpty(os.get("servicepackmajorversion"));
        }
    } catch (const std::exception& e) {
        runState.ErrorTrail += "Err while retriving OS and Service Pack" + errFrom(e).description;
    }
}

}  // namespace

std::string fOSName() {
    const std::string product = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kCurrentVersionKey, "ProductName"));
    const std::string csd = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kCurrentVersionKey, "CSDVersion"));
    environment.ServicePack = csd;
    if (!product.empty() && !csd.empty()) {
        environment.ServicePack = Trim(csd.substr(csd.find_last_of(' ') + 1));
        return product;
    }
    platform::OsVersion v;
    if (!platform::sys().getVersion(v)) return product;
    bool spMajor = false;
    std::string name = nameFromVersion(v, spMajor);
    if (spMajor) environment.ServicePack = std::to_string(v.servicePackMajor);
    return name.empty() ? product : name;
}

void Chk_Set_Prerequisites() {
    environment.ScanStartTime = platform::clock().now();
    environment.OSProductName = fOSName();
    probeWmi();
    WriteW3CLog("ModMain", "Chk_Set_Prerequisites", "INFO", "OS Found.", environment.OSProductName);
    WriteW3CLog("ModMain", "Chk_Set_Prerequisites", "INFO", "Service Pack.", environment.ServicePack);
    if (Trim(environment.OSName).empty()) environment.OSName = environment.OSProductName;
    if (Trim(environment.ServicePackName).empty()) environment.ServicePackName = "Service Pack " + environment.ServicePack;
    AutoUpdateReg();
    ChkAutoUpdateVersion();
    subWUMSSwitch();
}

}  // namespace kpm
