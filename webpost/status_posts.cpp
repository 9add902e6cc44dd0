// The status posts: the partner's black list asked for before the Microsoft
// scan, and the download status reported at close-down. Each tries the
// primary site, then the secondary when the primary gave no answer.
#include "webpost/status_posts.h"

#include <cmath>
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_state.h"
#include "platform/host.h"
#include "webpost/site_config.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"

namespace kpm {

using platform::ByRef;
using platform::Object;
using platform::Variant;

namespace {

constexpr const char* kWebPosterProgId = "kWbPost.WebPost";
// The maker's string-encryption class and the interface whose first method encrypts.
constexpr const char* kStringCipherClsid = "{88565CBB-406B-431F-BE79-66F8E3F67490}";
constexpr const char* kStringCipherIid = "{ACCB0845-EFBD-44F9-BF6B-025DDF631166}";

void logKB(const std::string& message, const std::string& value = "", const std::string& type = "INFO") {
    WriteW3CLog("modGenericWP", "fncWebPostKB", type, message, value);
}

void logStatus(const std::string& message, const std::string& value = "") {
    WriteW3CLog("ModWebPost", "FncWebPostDownloadStatus", "INFO", message, value);
}

// The usual entry of these procedures' traps: number, description, last system error.
void logError(const std::string& module, const std::string& proc, const ErrInfo& e) {
    WriteW3CLog(module, proc, "ERROR", std::to_string(e.number), e.description, std::to_string(e.lastDllError));
}

// One PostXMLString call. The document, and for a plain post the URL, go by
// reference and are read back; the outputs land in statusPosts.
void PostXMLString(Object& poster, std::string& document, std::string* urlByRef, const std::string& urlByValue) {
    StatusPostState& s = statusPosts;
    Variant xml(document), ret(s.PostReturnValue), number(s.PostErrorNumber), description(s.PostErrorDescription),
        source(s.PostErrorSource);
    if (urlByRef) {
        Variant url(*urlByRef);
        poster.call("PostXMLString", ByRef{&xml}, false, ByRef{&url}, "", "", ByRef{&ret}, ByRef{&number},
                    ByRef{&description}, ByRef{&source});
        *urlByRef = url.toString();
    } else {
        poster.call("PostXMLString", ByRef{&xml}, false, urlByValue, "", "", ByRef{&ret}, ByRef{&number},
                    ByRef{&description}, ByRef{&source});
    }
    document = xml.toString();
    s.PostReturnValue = ret.toString();
    s.PostErrorNumber = number.toString();
    s.PostErrorDescription = description.toString();
    s.PostErrorSource = source.toString();
}

// One attempt of the black-list request to `url` (a site URL of AgentSettings).
// True when the site answered; the answer is then the partner's black list.
bool postBlackListRequest(Object& poster, std::string& document, std::string& url) {
    if (webPostSite.PostEncryptFlag != "1") {
        PostXMLString(poster, document, &url, "");
    } else {
        // The fixed outer element goes around the CDATA wrapper, which already
        // carries the root element: with root "wppthmsbbllist" it appears twice.
        document = "<wppthmsbbllist>" + fncXMLEncrypt(document) + "</wppthmsbbllist>";
        PostXMLString(poster, document, nullptr, url + "?ec=256");
    }
    // Any text counts as an answer, "0" included.
    if (Trim(statusPosts.PostReturnValue).empty()) return false;
    PartnerBlackList = Trim(statusPosts.PostReturnValue);
    logKB("Return Value", PartnerBlackList);
    poster.release();
    return true;
}

// One attempt of the status report to `url`. WebPoster is released after the
// call and never created again, so a second attempt fails on the released object.
bool postStatusReport(std::string& document, std::string& url) {
    StatusPostState& s = statusPosts;
    if (webPostSite.PostEncryptFlag != "1") {
        PostXMLString(s.WebPoster, document, &url, "");
    } else {
        document = fncXMLEncrypt(document);
        PostXMLString(s.WebPoster, document, nullptr, url + "&ec=256");
    }
    s.WebPoster.release();
    s.LastPostResult = s.PostReturnValue;
    logStatus("Webpost URL", url);
    logStatus("Encrypted XML String", document);
    logStatus("Return Value", s.PostReturnValue);
    return !Trim(s.PostReturnValue).empty();
}

// Bytes as megabytes with one decimal, halves to the even digit, in the
// shortest form.
std::string megabytesText(double bytes) {
    return platform::formatNumber(std::nearbyint(bytes / 1024 / 1024 * 10) / 10);
}

}  // namespace

std::string fncXMLEncrypt(const std::string& document) {
    try {
        platform::Automation& a = platform::automation();
        Object cipher = a.createByClsid(kStringCipherClsid);
        const std::string encrypted = a.callFirstMethod(cipher, kStringCipherIid, document);
        const std::string& root = webPostSite.PostRootElement;
        return "<" + root + "><![CDATA[" + encrypted + "]]></" + root + ">";
    } catch (const std::exception& e) {
        logError("ModWebPost", "fncXMLEncrypt", errFrom(e));
        return "";
    }
}

int16_t fncWebPostKB() {
    try {
        Object fso = platform::automation().createObject("Scripting.FileSystemObject");
        Object poster = platform::automation().createObject(kWebPosterProgId);
        logKB("Webposting for KBArticle Regid", agentSettings.RegID);
        subReadXMLWebpost("wppthmsbbllist");

        const std::string& root = webPostSite.PostRootElement;
        std::string document = "<" + root + "><regid>" + agentSettings.RegID + "</regid></" + root + ">";
        agentSettings.PrimarySiteURL = webPostSite.PrimaryWebPostUrl;
        agentSettings.SecondarySiteURL = webPostSite.SecondaryWebPostUrl;

        if (Trim(agentSettings.PrimarySiteURL).empty()) {
            logKB("Primary Webpost URL not found");
        } else {
            logKB("Webposting to Primary Site for Patches", agentSettings.PrimarySiteURL);
            logKB("XMLString", document);
            if (postBlackListRequest(poster, document, agentSettings.PrimarySiteURL)) return -1;
        }
        // The document goes on as the primary attempt left it: wrapped once
        // more for each encrypted attempt.
        if (Trim(agentSettings.SecondarySiteURL).empty()) {
            logKB("Secondary Webpost URL not found");
        } else {
            logKB("Webposting to Secondary Site  for Patches ", agentSettings.SecondarySiteURL);
            logKB("XMLString", document);
            if (postBlackListRequest(poster, document, agentSettings.SecondarySiteURL)) return -1;
        }

        const StatusPostState& s = statusPosts;
        logKB("Invalid Webpost for Patches at fncWebPostKB", "EMPTY", "ERROR");
        logKB("Error Number", s.PostErrorNumber, "ERROR");
        logKB("Error Source", s.PostErrorSource, "ERROR");
        logKB("Error Description", s.PostErrorDescription, "ERROR");
        CloseAll();
    } catch (const std::exception& e) {
        ErrInfo info = errFrom(e);
        runState.ErrorTrail += " WEBPOST at fncWebPostKB : " + statusPosts.PostErrorDescription + " : " +
                               std::to_string(info.number) + " : " + info.description;
        logError("modGenericWP", "fncWebPostKB", info);
        CloseAll();
    }
}

std::string BuildDownloadInfoXml() {
    // Every statement goes on after a failure of the one before.
    std::string xml;
    resumeNext([] { fncGetDiskSpace(UCase(agentSettings.InstallPath.substr(0, 3))); });
    const DownloadCounters& c = downloadCounters;
    auto element = [&xml](const char* name, const std::string& value) {
        resumeNext([&] { xml += std::string("<") + name + ">" + value + "</" + name + ">"; });
    };
    xml = "<wppthdwldinfo>";
    element("regid", agentSettings.RegID);
    element("drivespace", environment.DriveTotalMBText);
    element("freedrivespace", environment.DriveFreeMBText);
    element("alrdydwldpatchsize", megabytesText(c.AlreadyDownloadedBytes));
    element("curdwldpatchsize", megabytesText(c.CurrentDownloadedBytes));
    element("alrdynuofpatches", std::to_string(c.AlreadyDownloadedCount));
    element("curnuofpatches", std::to_string(c.CurrentDownloadedCount));
    element("errdesc", runState.ErrorTrail);  // not escaped: a "<" or "&" goes out as it stands
    element("dctime", agentSettings.RunStartTime);
    xml += "</wppthdwldinfo>";
    return xml;
}

void FncWebPostDownloadStatus() {
    try {
        subReadXMLWebpost("wppthdwldinfo");
        const AgentSettings& a = agentSettings;
        // Not URL-encoded: the values go into the query as they stand.
        const std::string query = "?mmid=" + a.MemberID + "&sid=" + a.SiteID + "&rid=" + a.RegID + "&rty=" + a.AgentType;
        agentSettings.PrimarySiteURL =
            webPostSite.PrimaryWebPostUrl.empty() ? "" : webPostSite.PrimaryWebPostUrl + query;
        agentSettings.SecondarySiteURL =
            webPostSite.SecondaryWebPostUrl.empty() ? "" : webPostSite.SecondaryWebPostUrl + query;
        if (Trim(agentSettings.PrimarySiteURL).empty() && Trim(agentSettings.SecondarySiteURL).empty()) {
            runState.ErrorTrail += " Primary and Secondary sites not found in XML";
            logStatus("Primary and Secondary sites not found in XML");
            return;
        }

        statusPosts.WebPoster = platform::automation().createObject(kWebPosterProgId);
        std::string document = BuildDownloadInfoXml();
        logStatus("XML String ", document);

        if (!Trim(agentSettings.PrimarySiteURL).empty() && postStatusReport(document, agentSettings.PrimarySiteURL))
            return;
        if (Trim(agentSettings.SecondarySiteURL).empty()) return;
        postStatusReport(document, agentSettings.SecondarySiteURL);
    } catch (const std::exception& e) {
        logError("ModWebPost", "FncWebPostDownloadStatus", errFrom(e));
    }
}

}  // namespace kpm
