// The channels every file transfer goes through: the partner's gateway (the
// maker's download library, the download object as last resort), Microsoft's
// content URL (the download object), and the system's URL download.
#pragma once

#include <cstdint>
#include <string>

namespace kpm {

// Where the maker's update host keeps its files ("/kScc/KDowFile.dll").
inline constexpr const char* kMakerUpdateHost = "http://update.vornsoft.com";

// How long DownloadURL_File waits, in seconds of polling, for a download that
// receives nothing before it gives up, and how long it polls at most.
inline constexpr int kDownloadNoProgressLimitSeconds = 60;
inline constexpr int kDownloadPollLimitSeconds = 4 * 60 * 60;

bool DloadPthOnGateWay(const std::string& url);
bool DLoadPchFromMicrosoft(const std::string& url);
bool fncDownloadFile(const std::string& url, const std::string& destination);
// The download object's three outputs after a failure: the HTTP status, the
// reason in words, the URL that failed.
struct JobFailure {
    std::string status, reason, url;
};
// The download object's one attempt, with its two spare arguments naming a
// proxy ("host:port") and its credentials ("user:password"), both empty for a
// direct connection. Throws what creating or calling the object throws.
// `maxBytes` above 0 is given to the object, which stops a longer body (an
// object without that property downloads whole; the caller checks the size).
// After a success `failure.url` names where redirects led, if anywhere.
bool JobDownloadFile(const std::string& url, const std::string& destination, const std::string& proxy,
                     const std::string& credentials, JobFailure& failure, uint64_t maxBytes = 0);
// "Success" or "Failed".
std::string DownloadURL_File(const std::string& url, const std::string& destination);
// URLDownloadToFileA: true when it returned 0.
bool DownloadFile(const std::string& url, const std::string& destination);
// MD5 text of a file, "" when it cannot be computed.
std::string fncCheckSum(const std::string& path);

// The part of a URL after its last "/", as every download names its file.
std::string FileNameFromURL(const std::string& url);
// False for a name that would put the file outside its folder: one that holds
// "\", "/", ":" or "..", or is empty. Such names are refused with an entry.
bool IsSafeFileName(const std::string& name);
// Logs the refusal of an unsafe name (ERROR under the caller's module and procedure).
void LogUnsafeFileName(const std::string& module, const std::string& proc, const std::string& name,
                       const std::string& source);

// The agent's folders (with a trailing "\").
std::string PatchManagementFolder();
std::string ComponentsFolder();

}  // namespace kpm
