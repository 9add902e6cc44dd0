// Where each kind of XML document is posted: the encrypted "wpConfig.xml".
#pragma once

#include <string>

namespace kpm {

struct WebPostSite {
    std::string WebPostConfigPath, WebPostConfigText;
    std::string PrimaryWebPostUrl, SecondaryWebPostUrl;
    std::string PostPageName, PostRootElement, PostEncryptFlag;
};

inline WebPostSite webPostSite;

void Create_Data_Log_Files();
void subReadXMLWebpost(const std::string& documentKind);
std::string EncDecXML(bool encrypt, const std::string& path);

}  // namespace kpm
