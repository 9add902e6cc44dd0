// The third-party file download: one file by URL into a folder, through the
// gateway when the agent has one, else (or when that fails) from the URL
// itself; checked against an MD5 when one is given; a ".zip" unpacked into
// "ZipComp" under the folder. Every file fetched is written to "DwldURL.txt".
#pragma once

#include <string>

namespace kpm {

struct TPDownloadResult {
    bool Success = false;
    std::string FilePath;    // the file written
    bool Extracted = false;  // a ".zip" unpacked into <folder>\ZipComp
    std::string ErrorText1, ErrorText2;  // what failed, and the URL or reason
};

TPDownloadResult fncDownloadTPMFile(const std::string& url, const std::string& folder,
                                    const std::string& md5 = "");

}  // namespace kpm
