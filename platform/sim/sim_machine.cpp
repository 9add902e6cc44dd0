#include "platform/sim/sim_machine.h"

#include <cctype>
#include <initializer_list>

#include "platform/sim/sim_automation.h"
#include "platform/sim/sim_clock.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_maker.h"
#include "platform/sim/sim_network.h"
#include "platform/sim/sim_profile.h"
#include "platform/sim/sim_registry.h"
#include "platform/sim/sim_services.h"
#include "platform/sim/sim_state.h"
#include "platform/sim/sim_system.h"

namespace platform::sim {

namespace fs = std::filesystem;

struct SimMachine::Impl {
    MachineState state;
    std::unique_ptr<SimFiles> files;
    std::shared_ptr<standins::StandinHost> standinHost;
    std::unique_ptr<SimInternet> internet;
    std::unique_ptr<SimRegistry> registry;
    std::unique_ptr<SimProfile> profile;
    std::unique_ptr<SimClock> clock;
    std::unique_ptr<SimSystem> system;
    std::unique_ptr<SimAutomation> automation;
    std::unique_ptr<SimMaker> maker;
    std::unique_ptr<SimServices> services;
};

std::unique_ptr<SimMachine> SimMachine::open(const fs::path& folder, const OpenOptions& options) {
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) throw MachineError("machine folder not found: " + folder.string());

    auto impl = std::make_unique<Impl>();
    MachineState& s = impl->state;
    s.folder = fs::absolute(folder, ec);
    if (ec) s.folder = folder;
    s.config = loadMachineConfig(s.folder / "machine.ini", options.sitePorts);
    s.codePage = CodePage(s.config.codePage);
    // machine.ini is UTF-8 like the rest of the folder; what it says the
    // system answers reaches the program in its code page.
    for (std::string* text : {&s.config.exePath, &s.config.computerName, &s.config.systemDirectory,
                              &s.config.amDesignator, &s.config.pmDesignator, &s.config.osCaption,
                              &s.config.os.csdVersion})
        *text = s.codePage.fromUtf8(*text);
    for (auto& process : s.config.processes) process = s.codePage.fromUtf8(process);

    impl->files = std::make_unique<SimFiles>(s);
    sweepStaged(s.folder / ".transfers");
    const char drive = static_cast<char>(std::toupper(static_cast<unsigned char>(s.config.exePath[0])));
    if (impl->files->driveFolder(drive).empty())
        throw MachineError("machine.ini: [Machine] ExePath=" + s.config.exePath + " is on drive " + drive +
                           ":, which has no folder drives/" + drive);

    impl->registry = std::make_unique<SimRegistry>(s, s.folder / "registry.reg");
    impl->registry->setHostPaths([files = impl->files.get()](std::string_view path) { return files->hostPath(path); });
    impl->profile = std::make_unique<SimProfile>(s, *impl->files);
    DateTime start = options.now ? *options.now : s.config.now ? *s.config.now : hostLocalTime();
    impl->clock = std::make_unique<SimClock>(s.config, start, options.frozenClock);
    impl->system = std::make_unique<SimSystem>(s, *impl->files, *impl->registry);
    impl->automation = std::make_unique<SimAutomation>(s, *impl->registry, *impl->files);
    impl->standinHost = newSimStandinHost(s.config, *impl->files, s.folder / ".transfers");
    impl->internet = std::make_unique<SimInternet>(impl->standinHost);
    impl->maker = std::make_unique<SimMaker>(s, *impl->files, impl->standinHost);
    impl->services = std::make_unique<SimServices>(s, *impl->registry);

    std::unique_ptr<SimMachine> machine(new SimMachine(std::move(impl)));
    registerStandardClasses(*machine, *machine->impl_->automation);
    return machine;
}

SimMachine::SimMachine(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
SimMachine::~SimMachine() = default;

const fs::path& SimMachine::folder() const { return impl_->state.folder; }

fs::path SimMachine::hostPath(std::string_view windowsPath) const { return impl_->files->hostPath(windowsPath); }

const CodePage& SimMachine::codePage() const { return impl_->state.codePage; }

Registry& SimMachine::registry() { return *impl_->registry; }
Profile& SimMachine::profile() { return *impl_->profile; }
FileSystem& SimMachine::files() { return *impl_->files; }
Clock& SimMachine::clock() { return *impl_->clock; }
System& SimMachine::system() { return *impl_->system; }
Automation& SimMachine::automation() { return *impl_->automation; }
MakerLibraries& SimMachine::maker() { return *impl_->maker; }
Internet& SimMachine::internet() { return *impl_->internet; }
Services& SimMachine::services() { return *impl_->services; }
const std::shared_ptr<standins::StandinHost>& SimMachine::standinHost() const { return impl_->standinHost; }
SimAutomation& SimMachine::simAutomation() { return *impl_->automation; }
SimFiles& SimMachine::simFiles() { return *impl_->files; }
const MachineConfig& SimMachine::config() const { return impl_->state.config; }

std::vector<std::string> SimMachine::processes() const {
    std::vector<std::string> list = impl_->state.config.processes;
    const std::string& exe = impl_->state.config.exePath;
    list.push_back(exe.substr(exe.find_last_of('\\') + 1));
    return list;
}

}  // namespace platform::sim
