#include "platform/sim/sim_automation.h"

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "platform/sim/sim_config.h"
#include "platform/sim/sim_state.h"
#include "standins/served_classes.h"

namespace platform::sim {

namespace {

// What a class factory answers for an identifier its DLL does not serve.
constexpr int32_t kClassNotAvailable = static_cast<int32_t>(0x80040111);  // CLASS_E_CLASSNOTAVAILABLE

void checkState(const MachineConfig& config, const std::string& name) {
    switch (config.classState(name)) {
    case ClassState::Missing: throw makeError(err::CannotCreateObject);
    case ClassState::BadModule: throw makeError(err::ModuleNotFound);
    case ClassState::Normal: break;
    }
}

// The default value of HKCR\<path> when it is a string; false otherwise.
bool readDefault(Registry& registry, const std::string& path, std::string& out) {
    std::unique_ptr<RegKey> key;
    if (registry.openKey(Hive::ClassesRoot, path, regaccess::Read, RegView::Default, key) != regerr::Success)
        return false;
    RegValue v;
    if (key->queryValue("", v) != regerr::Success) return false;
    if (v.type != regtype::String && v.type != regtype::ExpandString) return false;
    out.assign(v.data.begin(), v.data.end());
    while (!out.empty() && out.back() == '\0') out.pop_back();
    return true;
}

bool writeString(Registry& registry, const std::string& path, std::string_view name, std::string_view value) {
    std::unique_ptr<RegKey> key;
    return registry.createKey(Hive::ClassesRoot, path, RegView::Default, key) == regerr::Success &&
           key->setValue(name, RegValue::string(value)) == regerr::Success;
}

std::string fileNameOf(std::string_view path) {
    size_t cut = path.find_last_of("\\/");
    return std::string(cut == std::string_view::npos ? path : path.substr(cut + 1));
}

// Runs a lookup of the machine's own without touching the program's last error.
template <class F>
auto keepingLastError(MachineState& state, F&& f) {
    struct Restore {
        MachineState& s;
        uint32_t saved;
        ~Restore() { s.lastError = saved; }
    } restore{state, state.lastError};
    return f();
}

}  // namespace

SimAutomation::SimAutomation(MachineState& state, Registry& registry, FileSystem& files)
    : state_(state), registry_(registry), files_(files) {}

void SimAutomation::registerClass(std::string progId, Factory factory) {
    for (auto& c : classes_)
        if (iequals(c.first, progId)) {
            c.second = std::move(factory);
            return;
        }
    classes_.emplace_back(std::move(progId), std::move(factory));
}

void SimAutomation::registerMoniker(std::string prefix, Factory factory) {
    monikers_.emplace_back(std::move(prefix), std::move(factory));
}

const SimAutomation::Factory* SimAutomation::factoryOf(std::string_view progId) const {
    for (const auto& c : classes_)
        if (iequals(c.first, progId)) return &c.second;
    return nullptr;
}

Object SimAutomation::createObject(std::string_view progId) {
    if (standins::isMakerClass(standins::findServedClass(progId))) return createRegistered(progId);
    for (const auto& c : classes_)
        if (iequals(c.first, progId)) {
            checkState(state_.config, c.first);
            return c.second();
        }
    throw makeError(err::CannotCreateObject);
}

// CLSIDFromProgID, then the in-process server's registration, then the DLL.
Object SimAutomation::createRegistered(std::string_view progId) {
    const Factory* factory = keepingLastError(state_, [&]() -> const Factory* {
        std::string clsid, dll;
        if (!readDefault(registry_, std::string(progId) + "\\CLSID", clsid)) throw makeError(err::CannotCreateObject);
        if (!readDefault(registry_, "CLSID\\" + clsid + "\\InprocServer32", dll))
            throw makeError(err::CannotCreateObject);  // REGDB_E_CLASSNOTREG
        if (dll.empty() || !files_.fileExists(dll)) throw makeError(err::ModuleNotFound);
        const standins::ServedClass* served = standins::findServedClassById(clsid);
        const Factory* f =
            served && standins::servesClass(fileNameOf(dll), *served) ? factoryOf(served->progId) : nullptr;
        if (!f) throw ComError(kClassNotAvailable, "KPMDwld", "ClassFactory cannot supply requested class");
        return f;
    });
    return (*factory)();
}

void SimAutomation::registerClassId(std::string clsid, Factory factory) {
    classIds_.emplace_back(std::move(clsid), std::move(factory));
}

void SimAutomation::registerInterface(std::string iid, std::string firstMethod) {
    interfaces_.emplace_back(std::move(iid), std::move(firstMethod));
}

Object SimAutomation::createByClsid(std::string_view clsid) {
    for (const auto& c : classIds_)
        if (iequals(c.first, clsid)) return c.second();
    throw makeError(err::CannotCreateObject);
}

std::string SimAutomation::callFirstMethod(const Object& object, std::string_view iid, const std::string& text) {
    for (const auto& i : interfaces_)
        if (iequals(i.first, iid)) {
            Object o = object;
            return o.call(i.second, text).toString();
        }
    throw makeError(err::NoExpectedInterface);
}

Object SimAutomation::getObject(std::string_view moniker) {
    for (const auto& m : monikers_)
        if (moniker.size() >= m.first.size() && iequals(moniker.substr(0, m.first.size()), m.first)) {
            std::string name = m.first;
            if (!name.empty() && name.back() == ':') name.pop_back();
            checkState(state_.config, name);
            return m.second();
        }
    throw makeError(err::MonikerNotFound);
}

bool registerComServer(Registry& registry, FileSystem& files, std::string_view dllPath) {
    const std::string name = fileNameOf(dllPath);
    if (!standins::isMakerDll(name) || !files.fileExists(dllPath)) return false;
    bool ok = true;
    for (const auto& c : standins::kServedClasses) {
        if (!standins::servesClass(name, c)) continue;
        const std::string key = "CLSID\\" + std::string(c.clsid);
        const std::string progId(c.progId);
        ok = writeString(registry, key, "", progId) && writeString(registry, key + "\\InprocServer32", "", dllPath) &&
             writeString(registry, key + "\\InprocServer32", "ThreadingModel", "Apartment") &&
             writeString(registry, key + "\\ProgID", "", progId) && writeString(registry, progId, "", progId) &&
             writeString(registry, progId + "\\CLSID", "", c.clsid) && ok;
    }
    return ok;
}

}  // namespace platform::sim
