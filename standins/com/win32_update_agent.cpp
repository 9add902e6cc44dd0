#include "standins/com/win32_update_agent.h"

#include <system_error>

#include "platform/win32/bindings.h"
#include "standins/com/win32_standin_host.h"

namespace standins::win32 {

std::shared_ptr<const UpdateAgentPlace> updateAgentPlace() {
    std::filesystem::path folder(standinsFolder());
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);  // the records' folder must exist
    std::shared_ptr<platform::Automation> automation = platform::win32::newAutomation();
    return std::make_shared<const UpdateAgentPlace>(UpdateAgentPlace{
        folder, folder / "network.ini", newWin32StandinHost(),
        [automation] { return automation->createObject("MSXML2.DOMDocument"); }});
}

}  // namespace standins::win32
