#include "log/w3c_log.h"

#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/main.h"
#include "platform/host.h"
#include "wuenv/registry_policy.h"

namespace kpm {

namespace {

constexpr const char* kLogFolder = "BaseComponents\\PatchManagement\\ApplicationLog";

}  // namespace

bool OpenW3CLog() {
    // No trap of its own: a failure here belongs to the pass's handler.
    std::string regId =
        Trim(RegQueryStringValue(platform::Hive::LocalMachine, "SOFTWARE\\VORNOD", "RegID"));
    std::string& installPath = agentSettings.InstallPath;
    installPath = Trim(
        RegQueryStringValue(platform::Hive::LocalMachine, "SOFTWARE\\VORNOD", "InstallationPath"));
    if (installPath.empty() || installPath.back() != '\\') installPath += '\\';

    auto& fs = platform::files();
    std::string path;
    if (fs.folderExists(installPath) && !regId.empty()) {
        fs.makeSureDirectoryPathExists(installPath + kLogFolder + "\\");
        path = installPath + kLogFolder + "\\wppatchmanagementDownload_" + regId + "_patchlog.log";
    } else {
        // Without a registration there is nothing to log against: the pass
        // ends here, before a single line is written.
        path = AppPath() + "\\wppatchmanagementDownload_RegIDNotFound_patchlog.log";
        platform::endProcess(0);
    }

    if (fs.fileExists(path) && static_cast<double>(fs.fileSize(path)) / 1000.0 > kLogSizeLimitKB) {
        fs.clearReadOnly(path);
        fs.deleteFile(path);
    }

    if (!fs.findFirst(path)) {
        const std::string crlf = "\r\n";
        std::string header = "#Software: VORN.AgentMonitoring." + AppExeName() + crlf +
                             "#Version: " + ProgramVersion() + crlf + "#Date: " +
                             platform::clock().generalDate(platform::clock().now()) + crlf +
                             "#Fields: dtime\tform\tmodule\ttype\tval1\tval2\tval3" + crlf;
        fs.append(path, header);
    }

    LogFilePath = path;
    return false;
}

void WriteW3CLog(const std::string& module, const std::string& proc, const std::string& type,
                 const std::string& message, const std::string& val1, const std::string& val2,
                 const std::string& val3) {
    try {
        if (LogFilePath.empty()) return;
        auto& clock = platform::clock();
        std::string line;
        line.reserve(64 + module.size() + proc.size() + message.size() + val1.size() +
                     val2.size() + val3.size());
        line += clock.generalDate(clock.now());
        for (const std::string* field : {&module, &proc, &type, &message, &val1, &val2, &val3}) {
            line += '\t';
            line += *field;
        }
        line += "\r\n";
        platform::files().append(LogFilePath, line);
    } catch (const std::exception&) {
        // Logging never stops or alters its caller.
    }
}

}  // namespace kpm
