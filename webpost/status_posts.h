// The XML status posts to the management site, through the maker's posting
// component "kWbPost.WebPost": the black-list request ("wppthmsbbllist") and
// the download status report ("wppthdwldinfo").
#pragma once

#include <cstdint>
#include <string>

#include "platform/automation.h"

namespace kpm {

// The partner's blocked knowledge-base articles: the trimmed answer of the
// black-list request. The patch selection searches it for each update's KB number.
inline std::string PartnerBlackList;

// What the status posts keep between their steps.
struct StatusPostState {
    std::string LastPostResult;  // the last answer of the status report
    platform::Object WebPoster;  // the status report's poster, released after each attempt
    // The poster's output arguments, as its last call left them.
    std::string PostReturnValue, PostErrorNumber, PostErrorDescription, PostErrorSource;
};

inline StatusPostState statusPosts;

// The black-list request. True (-1) when a site answered; when none did, the
// process is closed down (CloseAll) and this does not return.
int16_t fncWebPostKB();
// The download status report, primary site then secondary.
void FncWebPostDownloadStatus();
// The "wppthdwldinfo" document, values inserted as they stand.
std::string BuildDownloadInfoXml();
// The document encrypted by the maker's string-encryption class, wrapped in
// CDATA inside the configured root element; empty when encryption failed.
std::string fncXMLEncrypt(const std::string& document);

}  // namespace kpm
