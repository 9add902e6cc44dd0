// The third-party file download: one file by URL into a folder, through the
// gateway when the agent has one, then from the URL itself.
//   Without an expected file (the product list): the name is the URL's, and
//   a ".zip" is unpacked into "ZipComp" under the folder.
//   With one (an installer): the file is staged under a temporary name, and
//   takes its own name only once its size, MD5 and SHA-256 (when given) match;
//   the URL is reached through the agent's proxy; the gateway may be the only
//   channel.
// Every file kept is written to "DwldURL.txt".
#pragma once

#include <cstdint>
#include <string>

namespace kpm {

struct TPDownloadResult {
    bool Success = false;
    std::string FilePath;    // the file written
    bool Extracted = false;  // a ".zip" unpacked into <folder>\ZipComp
    std::string ErrorText1, ErrorText2;  // what failed, and the URL or reason
    std::string Channel;     // "gateway" or "vendor": where a verified file came from
    std::string FinalUrl;    // the vendor's address redirects led to; empty when none was followed
};

// What a file must be to be kept.
struct TPExpectedFile {
    std::string name;  // its name in the folder and on the gateway
    uint64_t size = 0;
    std::string md5, sha256;  // lower-case hex; no SHA-256 when empty
    bool gatewayOnly = false;
};

TPDownloadResult fncDownloadTPMFile(const std::string& url, const std::string& folder,
                                    const TPExpectedFile* expected = nullptr);

// Size, MD5 (the maker's library) and SHA-256 of a file against what it must
// be: empty when it matches, else what arrived ("arrived N bytes, MD5 ...",
// and that it is an HTML page when it looks like one).
std::string fncCompareInstaller(const std::string& path, const TPExpectedFile& expected);
// "expected N bytes, MD5 ..., SHA-256 ...".
std::string ExpectedText(const TPExpectedFile& expected);

}  // namespace kpm
