// Placeholder until the web-post site configuration is built.
#include "webpost/site_config.h"

namespace kpm {

void Create_Data_Log_Files() {}
void subReadXMLWebpost(const std::string&) {}
std::string EncDecXML(bool, const std::string&) { return {}; }

}  // namespace kpm
