// The simulated machine's network: URLs reach local endpoints only, as
// machine.ini [Network] maps their hosts; libcurl moves the bytes. Downloads
// are staged in <machine>/.transfers and moved onto the simulated drive in
// one step when complete.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/internet.h"
#include "standins/transfer.h"

namespace platform::sim {

struct MachineConfig;
class SimFiles;

// libcurl's process-wide set-up, once, before the first transfer.
void initCurlOnce();

// libcurl with the machine's host map: an unmapped host fails as an
// unresolvable one; a transfer that receives nothing for `stallSeconds` fails.
std::unique_ptr<standins::Transport> newCurlTransport(const MachineConfig& config);

// What the download and zip stand-ins of this machine write through.
std::shared_ptr<standins::StandinHost> newSimStandinHost(const MachineConfig& config, SimFiles& files,
                                                         std::filesystem::path stagingFolder);

// URLDownloadToFileA on the simulated machine.
class SimInternet : public Internet {
public:
    explicit SimInternet(std::shared_ptr<standins::StandinHost> host) : host_(std::move(host)) {}
    int32_t urlDownloadToFile(const std::string& url, const std::string& path) override;

private:
    std::shared_ptr<standins::StandinHost> host_;
};

}  // namespace platform::sim
