#include "wuenv/registry_policy.h"

#include <exception>
#include <memory>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "wuenv/environment.h"

namespace kpm {

namespace {

using platform::Hive;
using platform::RegKey;
using platform::RegValue;
using platform::RegView;

constexpr const char* kPendingRegistrationKey =
    "Software\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\PendingServiceRegistration\\"
    "7971f918-a847-4430-9279-4a52d1efe18d";

[[noreturn]] void raiseLowLevel(const std::string& source, const std::string& description) {
    throw platform::ComError(platform::err::LowLevelStep, source, description);
}

// Reads one value: strings without their terminating zero, binary data as it
// is, DWORDs as their number; other types give "". A failed read raises 13579.
std::string RegQueryKeyValue(RegKey* key, const std::string& valueName) {
    RegValue value;
    long result = key ? key->queryValue(valueName, value) : platform::regerr::InvalidHandle;
    if (result != platform::regerr::Success) {
        raiseLowLevel("RegQueryKeyValue", "lResult : Last Dll Error : " + std::to_string(result) +
                                              " : " + std::to_string(platform::sys().lastError()));
    }
    switch (value.type) {
    case platform::regtype::String:
        return std::string(value.data.begin(), value.data.empty() ? value.data.end() : value.data.end() - 1);
    case platform::regtype::Binary:
        return std::string(value.data.begin(), value.data.end());
    case platform::regtype::Dword:
        return std::to_string(value.dwordValue());
    default:
        return {};
    }
}

void logPolicy(const char* proc, const std::string& message, const std::string& val1 = "",
               const std::string& val2 = "", const std::string& val3 = "") {
    WriteW3CLog("ModMain", proc, "INFO", message, val1, val2, val3);
}

int16_t setDword(RegView view, const char* proc, const std::string& valueName, uint32_t wanted,
                 const std::string& keyPath) {
    try {
        logPolicy(proc, "Modifying Registry Values", valueName);
        std::unique_ptr<RegKey> key;
        if (platform::registry().openKey(Hive::LocalMachine, keyPath, platform::regaccess::AllAccess,
                                         view, key) != platform::regerr::Success)
            raiseLowLevel("lResult", std::string(proc) + ": Key Not Found, " + keyPath + " : " + valueName);

        RegValue current;
        long read = key->queryValue(valueName, current);
        std::string outcome;
        if (read != platform::regerr::Success || current.type != platform::regtype::Dword) {
            logPolicy(proc, "REGISTRY VALUE IS CORRUPTED", keyPath);
            // The repair has always created a subkey named like the value; it
            // does no harm and is kept.
            std::unique_ptr<RegKey> subKey;
            key->createSubKey(valueName, subKey);
            if (key->setValue(valueName, RegValue::dword(wanted)) != platform::regerr::Success)
                raiseLowLevel("RegSetValueEx", std::string(proc) + ": " + keyPath + " : " + valueName);
            subKey.reset();
            outcome = "REGISTRY VALUE TURNED OFF ";
        } else if (current.dwordValue() == wanted) {
            outcome = "REGISTRY VALUE ALREADY UPDATED ";
        } else {
            if (key->setValue(valueName, RegValue::dword(wanted)) != platform::regerr::Success)
                raiseLowLevel("RegSetValueEx", std::string(proc) + ": " + keyPath + " : " + valueName);
            outcome = "UPDATED REGISTRY VALUE";
        }
        logPolicy(proc, outcome, valueName, keyPath);
        logPolicy(proc, "Successfully modified Registry Values", valueName, keyPath, std::to_string(wanted));
        return -1;
    } catch (const std::exception&) {
        // Low-level failures raise 13579; the routine absorbs them silently.
        return 0;
    }
}

void logMU(const std::string& message, const std::string& val1 = "", const std::string& val2 = "") {
    WriteW3CLog("ModMSUpdate", "subMURegistryKeys", "INFO", message, val1, val2);
}

}  // namespace

std::string RegQueryStringValue(Hive hive, const std::string& keyPath, const std::string& valueName) {
    try {
        std::unique_ptr<RegKey> key;
        platform::registry().openKey(hive, keyPath, platform::regaccess::MaximumAllowed,
                                     RegView::Default, key);
        return RegQueryKeyValue(key.get(), valueName);
    } catch (const std::exception&) {
        return {};
    }
}

void SaveString(Hive hive, const std::string& keyPath, const std::string& valueName, const std::string& text) {
    try {
        std::unique_ptr<RegKey> key;
        if (platform::registry().createKey(hive, keyPath, RegView::Default, key) != platform::regerr::Success)
            raiseLowLevel("RegCreateKey", "SaveString: " + keyPath);
        // Written without a terminating zero, as it always was.
        RegValue value;
        value.type = platform::regtype::String;
        value.data.assign(text.begin(), text.end());
        if (key->setValue(valueName, value) != platform::regerr::Success)
            raiseLowLevel("RegSetValueEx", "SaveString: " + keyPath + " : " + valueName);
    } catch (const std::exception&) {
    }
}

bool RegistryEditable() {
    try {
        std::unique_ptr<RegKey> key;
        if (platform::registry().openKey(Hive::CurrentUser,
                                         "Software\\Microsoft\\Windows\\CurrentVersion\\Policies\\System",
                                         63, RegView::Default, key) != platform::regerr::Success)
            return true;
        RegValue value;
        if (key->queryValue("DisableRegistryTools", value) != platform::regerr::Success ||
            value.data.size() > 4)
            return true;
        return value.dwordValue() == 0;
    } catch (const std::exception&) {
        return true;
    }
}

int16_t SetRegDwordValue(const std::string& valueName, uint32_t value, const std::string& keyPath) {
    return setDword(RegView::Default, "SetRegDwordValue", valueName, value, keyPath);
}

int16_t SetRegDwordValue64(const std::string& valueName, uint32_t value, const std::string& keyPath) {
    return setDword(RegView::View64, "SetRegDwordValue64", valueName, value, keyPath);
}

void AutoUpdateReg() {
    try {
        policyKeys.AutoUpdateKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update";
        policyKeys.SecurityCenterKey = "SOFTWARE\\Microsoft\\Security Center";
        policyKeys.ServiceKey = "SYSTEM\\CurrentControlSet\\Services\\wuauserv";
        if (!RegistryEditable()) {
            WriteW3CLog("ModAutoUpdService", "AutoUpdateReg", "ERROR", "REGISTRY NOT EDITABLE.");
            return;
        }
        SetRegDwordValue64("AUOptions", 1, policyKeys.AutoUpdateKey);
        const std::string os = UCase(environment.OSProductName);
        if (os.find("XP") != std::string::npos || os.find("VISTA") != std::string::npos)
            SetRegDwordValue("UpdatesDisableNotify", 1, policyKeys.SecurityCenterKey);
        SetRegDwordValue("Start", 2, policyKeys.ServiceKey);
    } catch (const std::exception&) {
    }
}

void subMURegistryKeys() {
    try {
        const std::string caption = UCase(environment.OSName);
        size_t vista = caption.find("VISTA");
        // "Vista" must not be the caption's first word (position 2 or later).
        if ((vista != std::string::npos && vista >= 1) || caption.find("2008") != std::string::npos) {
            logMU("Updating Values to Registry for Microsoft Update", kPendingRegistrationKey, "ClientApplicationID");
            SaveString(Hive::LocalMachine, kPendingRegistrationKey, "ClientApplicationID", kClientApplicationID);
            logMU("Updating Values to Registry for Microsoft Update", kPendingRegistrationKey, "RegisterWithAU");
            SaveString(Hive::LocalMachine, kPendingRegistrationKey, "RegisterWithAU", "1");
        }
    } catch (const std::exception&) {
    }
}

void subWUMSSwitch() {
    // Every statement runs whatever failed before it; the last error is reported.
    std::unique_ptr<ErrInfo> lastError;
    auto step = [&](auto&& f) {
        try {
            f();
        } catch (const std::exception& e) {
            lastError = std::make_unique<ErrInfo>(errFrom(e));
        }
    };
    platform::Object manager;
    step([] { subMURegistryKeys(); });
    step([] {
        WriteW3CLog("ModMSUpdate", "subWUMSSwitch", "INFO", "Updating Values to Registry for Microsoft Update.");
    });
    step([&] { manager = platform::automation().createObject("Microsoft.Update.ServiceManager"); });
    step([&] { manager.put("ClientApplicationID", kClientApplicationID); });
    step([&] { manager.call("AddService2", kMicrosoftUpdateServiceID, 7, ""); });
    if (lastError)
        WriteW3CLog("ModMSUpdate", "subWUMSSwitch", "ERROR", "At subWUMSSwitch.",
                    std::to_string(lastError->number), lastError->description);
}

}  // namespace kpm
