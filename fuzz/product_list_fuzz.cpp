// The third-party product list "PDList.xml" and the version comparison:
// whatever the list holds, it is read into products or refused with a reason,
// its rules are assessed against the machine's registry, and any two texts
// compare as versions the same way read in either order.
#include <cstdlib>

#include "fuzz_machine.h"
#include "tppatch/assessment.h"
#include "tppatch/catalogue.h"
#include "tppatch/version.h"
#include "tppatch/wildcard.h"

namespace {

// Installed products in both views and a user's hive, for the rules to find.
const char* const kInstalled =
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Mozilla Firefox 131.0.3 (x64 en-US)]\r\n"
    "\"DisplayName\"=\"Mozilla Firefox 131.0.3 (x64 en-US)\"\r\n\"DisplayVersion\"=\"131.0.3\"\r\n\"Publisher\"=\"Mozilla\"\r\n\r\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{AC76BA86-7AD7-1033-7B44-AC0F074E4100}]\r\n"
    "\"DisplayName\"=\"Adobe Acrobat Reader\"\r\n\"DisplayVersion\"=\"24.004.20220\"\r\n\"Version\"=dword:18040000\r\n\r\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Notepad++]\r\n@=\"C:\\\\Program Files\\\\Notepad++\"\r\n\"Version\"=hex:08,00,07,00\r\n\r\n"
    "[HKEY_USERS\\S-1-5-21-1-2-3-1001\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\ZoomUMX]\r\n"
    "\"DisplayName\"=\"Zoom Workplace\"\r\n\"DisplayVersion\"=\"6.2.5 (47001)\"\r\n\r\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool installed = [] {
        kpmtest::TestMachine& m = kpmfuzz::openMachine();
        m.close();
        m.setRegistry(kpmtest::TestMachine::agentRegistry() + kInstalled);
        return true;
    }();
    (void)installed;
    const std::string input = kpmfuzz::text(data, size);

    // The first two lines as versions and as a pattern with the text it is matched against.
    const size_t cut = input.find('\n');
    const std::string first = input.substr(0, cut), second = cut == std::string::npos ? "" : input.substr(cut + 1, 300);
    auto a = kpm::ParseVersion(first), b = kpm::ParseVersion(second);
    if (a && b && kpm::CompareVersions(*a, *b) != -kpm::CompareVersions(*b, *a)) std::abort();
    if (a && kpm::CompareVersions(*a, *a) != 0) std::abort();
    std::string version;
    if (kpm::ExtractVersion(first.substr(0, 300), second, version) && !kpm::ParseVersion(version)) std::abort();
    kpm::WildcardMatch(first.substr(0, 300), second);

    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    const std::string path = std::string(kpmtest::kProgramFolder) + "\\Temp\\PDList.xml";
    m.writeFile(path, input);
    kpmfuzz::step([&] {
        try {
            const kpm::Catalogue c = kpm::ReadCatalogue(path);
            kpm::AssessProducts(c, std::vector<bool>(c.vendors.size(), true));
        } catch (const platform::ComError&) {
            // A list that is not one: the pass logs why and assesses nothing.
        }
    });
    return 0;
}
