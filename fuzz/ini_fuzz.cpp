// The private-profile reader and writer of the simulated machine, through the
// agent's own INI reader: any file reads and takes a write.
#include "config/agent_settings.h"
#include "config/ini.h"
#include "fuzz_machine.h"
#include "platform/host.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    const std::string ini = std::string(kpmtest::kInstallPath) + "VORNMobile.ini";
    m.writeFile(ini, kpmfuzz::text(data, size));
    for (const char* section : {"Download", "ProxySettings", "DCConnURL", ""})
        for (const char* key : {"PMDownload", "ProxyIP", "ControllerPSite", ""}) kpm::fncReadAgentIni(section, key, ini);
    platform::profile().writeString("Download", "PMDownload", "http://gateway/pm", ini);
    kpm::fncReadAgentIni("Download", "PMDownload", ini);
    return 0;
}
