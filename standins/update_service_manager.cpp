#include "standins/update_service_manager.h"

#include <cctype>
#include <fstream>
#include <sstream>

#include "platform/errors.h"

namespace standins {

namespace {

constexpr const char* kSource = "Microsoft.Update.ServiceManager";

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return {};
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

// The record file as sections of key=value lines, in file order.
struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> entries;
};

std::vector<Section> readRecord(const std::filesystem::path& file) {
    std::vector<Section> sections;
    std::ifstream in(file, std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
        std::string t = trim(line);
        if (t.empty()) continue;
        if (t.front() == '[' && t.back() == ']') {
            sections.push_back(Section{t.substr(1, t.size() - 2), {}});
        } else if (auto eq = t.find('='); eq != std::string::npos && !sections.empty()) {
            sections.back().entries.emplace_back(trim(t.substr(0, eq)), trim(t.substr(eq + 1)));
        }
    }
    return sections;
}

}  // namespace

bool isGuidText(const std::string& text) {
    static constexpr size_t groups[] = {8, 4, 4, 4, 12};
    size_t pos = 0;
    for (size_t g = 0; g < 5; ++g) {
        if (g > 0) {
            if (pos >= text.size() || text[pos] != '-') return false;
            ++pos;
        }
        for (size_t i = 0; i < groups[g]; ++i, ++pos)
            if (pos >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[pos])))
                return false;
    }
    return pos == text.size();
}

UpdateServiceManager::UpdateServiceManager(std::filesystem::path recordFile)
    : DispatchBase(kSource), recordFile_(std::move(recordFile)) {
    property(
        "ClientApplicationID", [this] { return Variant(clientApplicationId_); },
        [this](const Variant& v) {
            clientApplicationId_ = v.toString();
            record("ServiceManager", {{"ClientApplicationID", clientApplicationId_}});
        });
    method("AddService2", 3, [this](Args a) {
        return addService2(a[0].value.toString(), static_cast<long>(a[1].value.toLong()),
                           a[2].value.toString());
    });
}

Variant UpdateServiceManager::addService2(const std::string& serviceId, long flags,
                                          const std::string& cabPath) {
    // The agent's own checks: a service identifier, known flags, and no
    // authorization cabinet together with an online or pending registration.
    const long known = addservice::AllowPendingRegistration |
                       addservice::AllowOnlineRegistration | addservice::RegisterServiceWithAU;
    const long online = addservice::AllowPendingRegistration | addservice::AllowOnlineRegistration;
    if (!isGuidText(serviceId) || (flags & ~known) != 0 ||
        ((flags & online) != 0 && !cabPath.empty()))
        fail(kInvalidArg, "The parameter is incorrect.");

    record("Service " + serviceId, {{"Flags", std::to_string(flags)},
                                    {"AuthorizationCabPath", cabPath},
                                    {"ClientApplicationID", clientApplicationId_}});

    const bool withAU = (flags & addservice::RegisterServiceWithAU) != 0;
    std::string name = platform::iequals(serviceId, kMicrosoftUpdateServiceId)
                           ? "Microsoft Update"
                           : "Service " + serviceId;
    auto service = std::make_shared<PropertyBag>(
        "IUpdateService2",
        std::vector<std::pair<std::string, Variant>>{{"Name", Variant(name)},
                                                     {"ServiceID", Variant(serviceId)},
                                                     {"IsRegisteredWithAU", Variant(withAU)},
                                                     {"IsManaged", Variant(false)},
                                                     {"IsDefaultAUService", Variant(false)}});
    // UpdateServiceRegistrationState: 3 = registered.
    return Variant(std::make_shared<PropertyBag>(
        "IUpdateServiceRegistration",
        std::vector<std::pair<std::string, Variant>>{
            {"RegistrationState", Variant(3)},
            {"ServiceID", Variant(serviceId)},
            {"IsPendingRegistrationWithAU", Variant(false)},
            {"Service", Variant(std::shared_ptr<platform::Dispatch>(service))}}));
}

void UpdateServiceManager::record(const std::string& section,
                                  const std::vector<std::pair<std::string, std::string>>& values) {
    std::vector<Section> sections = readRecord(recordFile_);
    Section* target = nullptr;
    for (auto& s : sections)
        if (platform::iequals(s.name, section)) {
            target = &s;
            break;
        }
    if (!target) target = &sections.emplace_back(Section{section, {}});
    for (const auto& [key, value] : values) {
        bool replaced = false;
        for (auto& [k, v] : target->entries)
            if (platform::iequals(k, key)) {
                v = value;
                replaced = true;
                break;
            }
        if (!replaced) target->entries.emplace_back(key, value);
    }

    std::ostringstream text;
    for (const auto& s : sections) {
        text << '[' << s.name << "]\n";
        for (const auto& [k, v] : s.entries) text << k << '=' << v << '\n';
    }
    std::ofstream out(recordFile_, std::ios::trunc);
    out << text.str();
    out.close();
    if (!out) fail(kRecordWriteFailed, "Cannot write " + recordFile_.string());
}

}  // namespace standins
