// The update agent stand-in's catalogue: any file is a list of updates the
// scan can walk, or a damaged catalogue the search (online) and the scan
// package (offline) refuse with the agent's error.
#include <fstream>

#include "fuzz_machine.h"
#include "platform/host.h"

namespace {

void walk(platform::Object updates, int depth) {
    for (const platform::Variant& item : updates.items()) {
        platform::Object u = item.toObject();
        u.get("Title");
        u.get("LastDeploymentChangeTime").toString();
        for (const platform::Variant& c : u.obj("Categories").items()) c.toObject().get("Name");
        for (const platform::Variant& c : u.obj("DownloadContents").items()) c.toObject().get("DownloadUrl");
        if (depth < 8) walk(u.obj("BundledUpdates"), depth + 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    std::filesystem::path catalog = m.root() / "update-catalog.xml";
    { std::ofstream(catalog, std::ios::binary | std::ios::trunc) << kpmfuzz::text(data, size); }
    const std::string cab = std::string(kpmtest::kProgramFolder) + "\\wsusscn2.cab";
    m.writeFile(cab, kpmfuzz::text(data, size));
    try {
        platform::Object session = platform::automation().createObject("Microsoft.Update.Session");
        walk(session.call("CreateUpdateSearcher").toObject().call("Search", "isinstalled=0").toObject().obj("Updates"), 0);
    } catch (const platform::ComError&) {
    }
    try {
        platform::Object manager = platform::automation().createObject("Microsoft.Update.ServiceManager");
        manager.call("AddScanPackageService", "Offline Service", cab);
    } catch (const platform::ComError&) {
    }
    return 0;
}
