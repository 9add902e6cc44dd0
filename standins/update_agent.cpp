#include "standins/update_agent.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>

#include "platform/errors.h"

namespace standins {

namespace {

using platform::Object;

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return {};
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string hexNumber(int32_t n) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(n));
    return buf;
}

std::optional<std::string> readHostFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Failures of the stand-in's own records: the call fails, as the agent does
// when its data store cannot be written.
[[noreturn]] void recordFailed(const std::string& source, const std::filesystem::path& file) {
    throw platform::ComError(wuerr::Fail, source, "Cannot write " + file.string());
}

void appendLine(const std::string& source, const std::filesystem::path& file, const std::string& line) {
    std::ofstream out(file, std::ios::binary | std::ios::app);
    out << line << "\r\n";
    out.close();
    if (!out) recordFailed(source, file);
}

UpdateAgentSettings readSettings(const UpdateAgentPlace& place) {
    return parseUpdateAgentSettings(readHostFile(place.settingsFile).value_or(""),
                                    place.settingsFile.filename().string());
}

// ---- update-services.ini: sections of key=value lines, in file order. ----

struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> entries;

    std::string value(const std::string& key) const {
        for (const auto& [k, v] : entries)
            if (platform::iequals(k, key)) return v;
        return {};
    }
};

std::vector<Section> readRecord(const std::filesystem::path& file) {
    std::vector<Section> sections;
    std::istringstream in(readHostFile(file).value_or(""));
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

// Sets the keys in [section], keeping everything else.
void writeRecord(const std::string& source, const std::filesystem::path& file, const std::string& section,
                 const std::vector<std::pair<std::string, std::string>>& values) {
    std::vector<Section> sections = readRecord(file);
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
    // Written beside it and moved over it: a pass killed halfway leaves the
    // old record or the new one, never half of one.
    std::filesystem::path staged = file;
    staged += ".new";
    std::ofstream out(staged, std::ios::binary | std::ios::trunc);
    out << text.str();
    out.close();
    std::error_code ec;
    if (out) std::filesystem::rename(staged, file, ec);
    if (!out || ec) {
        std::filesystem::remove(staged, ec);
        recordFailed(source, file);
    }
}

constexpr const char* kServicePrefix = "Service ";

std::string serviceName(const Section& s, const std::string& id) {
    std::string name = s.value("Name");
    if (!name.empty()) return name;
    return platform::iequals(id, kMicrosoftUpdateServiceId) ? "Microsoft Update" : kServicePrefix + id;
}

Variant serviceObject(const std::string& name, const std::string& id, bool withAU, bool scanPackage) {
    return Variant(std::make_shared<PropertyBag>(
        "IUpdateService2", std::vector<std::pair<std::string, Variant>>{
                               {"Name", Variant(name)},
                               {"ServiceID", Variant(id)},
                               {"IsRegisteredWithAU", Variant(withAU)},
                               {"IsManaged", Variant(false)},
                               {"IsDefaultAUService", Variant(false)},
                               {"IsScanPackageService", Variant(scanPackage)}}));
}

// A service identifier for a scan package: the same inputs give the same
// identifier, so two machines that did the same get the same records.
std::string scanServiceId(const std::string& name, const std::string& file, size_t sequence) {
    auto fnv = [](const std::string& s, uint64_t h) {
        for (unsigned char c : s) h = (h ^ c) * 1099511628211ULL;
        return h;
    };
    const std::string key = name + '\n' + lower(file) + '\n' + std::to_string(sequence);
    uint64_t a = fnv(key, 14695981039346656037ULL), b = fnv(key, a ^ 0x9E3779B97F4A7C15ULL);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%08x-%04x-4%03x-%04x-%012llx", static_cast<unsigned>(a >> 32),
                  static_cast<unsigned>(a >> 16) & 0xFFFF, static_cast<unsigned>(a) & 0xFFF,
                  (static_cast<unsigned>(b >> 48) & 0x3FFF) | 0x8000,
                  static_cast<unsigned long long>(b & 0xFFFFFFFFFFFFULL));
    return buf;
}

// ---- Catalogues. ----

using Catalog = std::shared_ptr<const std::vector<CatalogUpdate>>;

// A test catalogue is small; a big file (a real scan package) is read no further.
constexpr uintmax_t kMaxCatalogBytes = 64 * 1024 * 1024;

// The catalogue at a Windows path: WU_E_INVALID_FILE-style `damaged` when it
// cannot be read as one, 0x80070002 when it is not there.
Catalog loadCatalog(const UpdateAgentPlace& place, const std::string& source, const std::string& windowsPath,
                    int32_t damaged, bool missingIsEmpty) {
    const std::string name = windowsPath.empty() ? std::string("update-catalog.xml") : windowsPath;
    std::filesystem::path file;
    if (windowsPath.empty()) file = place.recordFolder / "update-catalog.xml";
    else if (std::string readable = place.files->readablePath(windowsPath); !readable.empty()) file = readable;
    std::error_code ec;
    const uintmax_t size = file.empty() ? 0 : std::filesystem::file_size(file, ec);
    std::optional<std::string> text;
    if (!file.empty() && !ec && size <= kMaxCatalogBytes) text = readHostFile(file);
    if (!text && !ec && size > kMaxCatalogBytes)
        throw platform::ComError(damaged, source, name + ": larger than a catalogue may be");
    if (!text) {
        if (missingIsEmpty) return std::make_shared<const std::vector<CatalogUpdate>>();
        throw platform::ComError(wuerr::FileNotFound, source, "The system cannot find the file specified.");
    }
    auto updates = std::make_shared<std::vector<CatalogUpdate>>();
    std::string reason;
    if (!readCatalog(place.newXmlDocument(), *text, *updates, reason))
        throw platform::ComError(damaged, source, name + ": " + reason);
    return updates;
}

// ---- Collections. ----

// The agent's collections: Count, Item (WU_E_INVALIDINDEX outside), For Each,
// and Add, Clear and RemoveAt, which fail on a read-only one (search results).
class WuCollection : public DispatchBase {
public:
    WuCollection(std::string source, std::vector<Variant> items, bool readOnly)
        : DispatchBase(std::move(source)), items_(std::move(items)) {
        property("Count", [this] { return Variant(static_cast<long>(items_.size())); });
        property("ReadOnly", [readOnly] { return Variant(readOnly); });
        method("Item", 1, [this](Args a) { return items_[index(a[0].value)]; });
        method("Add", 1, [this, readOnly](Args a) {
            if (readOnly) fail(wuerr::NotSupported, "The collection is read-only.");
            if (!a[0].value.isObject()) fail(wuerr::InvalidArg, "The parameter is incorrect.");
            items_.push_back(a[0].value);
            return Variant(static_cast<long>(items_.size() - 1));
        });
        method("Clear", 0, [this, readOnly](Args) {
            if (readOnly) fail(wuerr::NotSupported, "The collection is read-only.");
            items_.clear();
            return Variant();
        });
        method("RemoveAt", 1, [this, readOnly](Args a) {
            if (readOnly) fail(wuerr::NotSupported, "The collection is read-only.");
            items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index(a[0].value)));
            return Variant();
        });
    }
    std::vector<Variant> enumerate() override { return items_; }

private:
    size_t index(const Variant& v) const {
        int64_t i = v.toLong();
        if (i < 0 || static_cast<uint64_t>(i) >= items_.size()) fail(wuerr::InvalidIndex, "The index is invalid.");
        return static_cast<size_t>(i);
    }

    std::vector<Variant> items_;
};

// ---- Updates. ----

class Update : public DispatchBase {
public:
    explicit Update(std::shared_ptr<const CatalogUpdate> u) : DispatchBase("IUpdate"), u_(std::move(u)) {
        property("Title", [this] { return Variant(u_->title); });
        property("IsInstalled", [this] { return Variant(u_->installed); });
        property("IsDownloaded", [] { return Variant(false); });
        property("LastDeploymentChangeTime",
                 [this] { return Variant(Variant::DateTag{platform::toOleDate(u_->deployed)}); });
        property("Identity", [this] {
            return Variant(std::make_shared<PropertyBag>(
                "IUpdateIdentity", std::vector<std::pair<std::string, Variant>>{
                                       {"UpdateID", Variant(u_->id)}, {"RevisionNumber", Variant(u_->revision)}}));
        });
        property("KBArticleIDs", [this] {
            std::vector<Variant> items(u_->kbs.begin(), u_->kbs.end());
            return Variant(std::make_shared<WuCollection>("IStringCollection", std::move(items), true));
        });
        // Read-only, and asked for once per configured classification: made once.
        property("Categories", [this] {
            if (!categories_) {
                std::vector<Variant> items;
                for (const auto& [type, name] : u_->categories)
                    items.emplace_back(std::make_shared<PropertyBag>(
                        "ICategory",
                        std::vector<std::pair<std::string, Variant>>{{"Type", Variant(type)}, {"Name", Variant(name)}}));
                categories_ = std::make_shared<WuCollection>("ICategoryCollection", std::move(items), true);
            }
            return Variant(categories_);
        });
        property("DownloadContents", [this] {
            std::vector<Variant> items;
            for (const auto& url : u_->contents)
                items.emplace_back(std::make_shared<PropertyBag>(
                    "IUpdateDownloadContent",
                    std::vector<std::pair<std::string, Variant>>{{"DownloadUrl", Variant(url)}}));
            return Variant(std::make_shared<WuCollection>("IUpdateDownloadContentCollection", std::move(items), true));
        });
        property("BundledUpdates", [this] {
            std::vector<Variant> items;
            for (const auto& b : u_->bundled)
                items.emplace_back(std::make_shared<Update>(std::shared_ptr<const CatalogUpdate>(u_, &b)));
            return Variant(std::make_shared<WuCollection>("IUpdateCollection", std::move(items), true));
        });
    }

private:
    std::shared_ptr<const CatalogUpdate> u_;
    std::shared_ptr<WuCollection> categories_;
};

// ---- WebProxy. ----

class WebProxy : public DispatchBase {
public:
    WebProxy() : DispatchBase("IWebProxy") {
        property("Address", [this] { return Variant(address); }, [this](const Variant& v) { address = v.toString(); });
        property("UserName", [this] { return Variant(userName); },
                 [this](const Variant& v) { userName = v.toString(); });
        property("AutoDetect", [this] { return Variant(autoDetect); },
                 [this](const Variant& v) { autoDetect = v.toBool(); });
        property("BypassProxyOnLocal", [this] { return Variant(bypassOnLocal); },
                 [this](const Variant& v) { bypassOnLocal = v.toBool(); });
        method("SetPassword", 1, [this](Args a) {
            password = a[0].value.toString();
            passwordSet = true;
            return Variant();
        });
    }

    std::string address, userName, password;
    bool passwordSet = false, autoDetect = false, bypassOnLocal = false;
};

// ---- Session, searcher, downloader. ----

struct SessionState {
    std::shared_ptr<const UpdateAgentPlace> place;
    Object proxy;  // the WebProxy set on the session; none: the default behaviour
};

class SearchResult : public DispatchBase {
public:
    explicit SearchResult(Variant updates) : DispatchBase("ISearchResult") {
        property("ResultCode", [] { return Variant(2); });  // orcSucceeded
        property("Updates", [updates] { return updates; });
        property("Warnings", [] {
            return Variant(std::make_shared<WuCollection>("IUpdateExceptionCollection", std::vector<Variant>{}, true));
        });
    }
};

class Searcher : public DispatchBase {
public:
    explicit Searcher(std::shared_ptr<SessionState> session)
        : DispatchBase("IUpdateSearcher"), session_(std::move(session)) {
        property("ServerSelection", [this] { return Variant(selection_); },
                 [this](const Variant& v) {
                     int64_t s = v.toLong();
                     if (s < 0 || s > 3) fail(wuerr::InvalidArg, "The parameter is incorrect.");
                     selection_ = static_cast<long>(s);
                 });
        property("ServiceID", [this] { return Variant(serviceId_); },
                 [this](const Variant& v) { serviceId_ = v.toString(); });
        property("Online", [this] { return Variant(online_); }, [this](const Variant& v) { online_ = v.toBool(); });
        method("Search", 1, [this](Args a) { return search(a[0].value.toString()); });
    }

private:
    Variant search(const std::string& criteria) {
        const UpdateAgentPlace& place = *session_->place;
        std::string line = "Search " + criteria + "; ServerSelection=" + std::to_string(selection_) +
                           "; ServiceID=" + serviceId_ + "; " + proxyText();
        try {
            std::vector<Variant> found = find(place, criteria);
            line += "; Updates=" + std::to_string(found.size());
            appendLine(source(), place.recordFolder / "update-searches.log", line);
            return Variant(std::make_shared<SearchResult>(
                Variant(std::make_shared<WuCollection>("IUpdateCollection", std::move(found), true))));
        } catch (const platform::ComError& e) {
            appendLine(source(), place.recordFolder / "update-searches.log", line + "; Error=" + hexNumber(e.number()));
            throw;
        }
    }

    std::vector<Variant> find(const UpdateAgentPlace& place, const std::string& criteria) {
        // The criteria the stand-in understands: IsInstalled=0 or =1.
        std::string c;
        for (unsigned char ch : criteria)
            if (!std::isspace(ch)) c += static_cast<char>(std::tolower(ch));
        if (c != "isinstalled=0" && c != "isinstalled=1")
            fail(wuerr::InvalidCriteria, "The search criteria \"" + criteria + "\" are not understood.");
        const bool installed = c.back() == '1';

        const UpdateAgentSettings settings = readSettings(place);
        if (!settings.error.empty()) fail(wuerr::Fail, settings.error);
        Catalog catalog;
        if (!online()) {
            std::string scanFile;
            for (const Section& s : readRecord(place.recordFolder / "update-services.ini"))
                if (platform::iequals(s.name, kServicePrefix + serviceId_)) scanFile = s.value("ScanFile");
            if (scanFile.empty())
                fail(wuerr::UnknownService, "The service " + serviceId_ + " is not registered.");
            catalog = loadCatalog(place, source(), scanFile, wuerr::InvalidFile, false);
        } else {
            if (settings.searchError != 0)
                fail(settings.searchError, "The search failed with error " + hexNumber(settings.searchError) + ".");
            catalog = loadCatalog(place, source(), settings.catalog, wuerr::XmlInvalid, true);
        }
        std::vector<Variant> out;
        for (const CatalogUpdate& u : *catalog)
            if (u.installed == installed)
                out.emplace_back(std::make_shared<Update>(std::shared_ptr<const CatalogUpdate>(catalog, &u)));
        return out;
    }

    // The default services and the two online ones search the online catalogue.
    bool online() const {
        if (selection_ != 3) return true;
        if (serviceId_.empty()) fail(wuerr::InvalidArg, "ServerSelection 3 needs a ServiceID.");
        return platform::iequals(serviceId_, kMicrosoftUpdateServiceId) ||
               platform::iequals(serviceId_, kWindowsUpdateServiceId);
    }

    std::string proxyText() const {
        std::string address, user, password;
        if (Object p = session_->proxy) {
            if (auto* mine = dynamic_cast<WebProxy*>(p.ptr().get())) {
                address = mine->address;
                user = mine->userName;
                password = mine->password;
            } else {
                address = p.get("Address").toString();
                user = p.get("UserName").toString();
            }
        }
        return "Proxy=" + address + "; UserName=" + user + "; Password=" + password;
    }

    std::shared_ptr<SessionState> session_;
    long selection_ = 0;
    std::string serviceId_;
    bool online_ = true;
};

class Downloader : public DispatchBase {
public:
    explicit Downloader(std::shared_ptr<SessionState> session)
        : DispatchBase("IUpdateDownloader"), session_(std::move(session)) {
        property("Updates", [this] { return updates_; },
                 [this](const Variant& v) {
                     if (!v.isObject()) fail(wuerr::InvalidArg, "The parameter is incorrect.");
                     updates_ = v;
                 });
        method("Download", 0, [this](Args) { return download(); });
    }

private:
    // Records each update it was given; moves no bytes.
    Variant download() {
        if (!updates_.isObject()) fail(wuerr::NoUpdate, "There are no updates.");
        Object list = updates_.toObject();
        const long n = static_cast<long>(list.get("Count").toLong());
        if (n == 0) fail(wuerr::NoUpdate, "There are no updates.");
        std::string lines;
        for (long i = 0; i < n; ++i) {
            Object u = list.obj("Item", i);
            Object identity = u.obj("Identity");
            if (i > 0) lines += "\r\n";
            lines += "Download " + identity.get("UpdateID").toString() + "." +
                     identity.get("RevisionNumber").toString() + " " + u.get("Title").toString();
        }
        appendLine(source(), session_->place->recordFolder / "update-downloads.log", lines);
        auto updateResult = std::make_shared<PropertyBag>(
            "IUpdateDownloadResult",
            std::vector<std::pair<std::string, Variant>>{{"ResultCode", Variant(2)}, {"HResult", Variant(0)}});
        return Variant(std::make_shared<DownloadResult>(n, updateResult));
    }

    class DownloadResult : public DispatchBase {
    public:
        DownloadResult(long count, std::shared_ptr<PropertyBag> each) : DispatchBase("IDownloadResult") {
            property("ResultCode", [] { return Variant(2); });  // orcSucceeded
            property("HResult", [] { return Variant(0); });
            method("GetUpdateResult", 1, [this, count, each](Args a) {
                int64_t i = a[0].value.toLong();
                if (i < 0 || i >= count) fail(wuerr::InvalidIndex, "The index is invalid.");
                return Variant(std::shared_ptr<platform::Dispatch>(each));
            });
        }
    };

    std::shared_ptr<SessionState> session_;
    Variant updates_;
};

class Session : public DispatchBase {
public:
    explicit Session(std::shared_ptr<const UpdateAgentPlace> place)
        : DispatchBase(kUpdateSessionProgId), state_(std::make_shared<SessionState>()) {
        state_->place = std::move(place);
        property("WebProxy",
                 [this] { return state_->proxy ? Variant(state_->proxy) : Variant(newWebProxy()); },
                 [this](const Variant& v) {
                     if (!v.isObject()) fail(wuerr::InvalidArg, "The parameter is incorrect.");
                     state_->proxy = v.toObject();
                 });
        property("ClientApplicationID", [this] { return Variant(clientApplicationId_); },
                 [this](const Variant& v) { clientApplicationId_ = v.toString(); });
        property("ReadOnly", [] { return Variant(false); });
        method("CreateUpdateSearcher", 0, [this](Args) { return Variant(std::make_shared<Searcher>(state_)); });
        method("CreateUpdateDownloader", 0, [this](Args) { return Variant(std::make_shared<Downloader>(state_)); });
    }

private:
    std::shared_ptr<SessionState> state_;
    std::string clientApplicationId_;
};

// ---- Service manager. ----

class ServiceManager : public DispatchBase {
public:
    explicit ServiceManager(std::shared_ptr<const UpdateAgentPlace> place)
        : DispatchBase(kUpdateServiceManagerProgId), place_(std::move(place)) {
        property(
            "ClientApplicationID", [this] { return Variant(clientApplicationId_); },
            [this](const Variant& v) {
                clientApplicationId_ = v.toString();
                writeRecord(source(), record(), "ServiceManager", {{"ClientApplicationID", clientApplicationId_}});
            });
        method("AddService2", 3, [this](Args a) {
            return addService2(a[0].value.toString(), static_cast<long>(a[1].value.toLong()), a[2].value.toString());
        });
        method("AddScanPackageService", 2, 3, [this](Args a) {
            return addScanPackageService(a[0].value.toString(), a[1].value.toString());
        });
        property("Services", [this] { return services(); });
    }

private:
    std::filesystem::path record() const { return place_->recordFolder / "update-services.ini"; }

    Variant addService2(const std::string& serviceId, long flags, const std::string& cabPath) {
        // The agent's own checks: a service identifier, known flags, and no
        // authorization cabinet together with an online or pending registration.
        const long known = addservice::AllowPendingRegistration | addservice::AllowOnlineRegistration |
                           addservice::RegisterServiceWithAU;
        const long online = addservice::AllowPendingRegistration | addservice::AllowOnlineRegistration;
        if (!isGuidText(serviceId) || (flags & ~known) != 0 || ((flags & online) != 0 && !cabPath.empty()))
            fail(wuerr::InvalidArg, "The parameter is incorrect.");

        writeRecord(source(), record(), kServicePrefix + serviceId,
                    {{"Flags", std::to_string(flags)},
                     {"AuthorizationCabPath", cabPath},
                     {"ClientApplicationID", clientApplicationId_}});
        const bool withAU = (flags & addservice::RegisterServiceWithAU) != 0;
        Variant service = serviceObject(serviceName(Section{}, serviceId), serviceId, withAU, false);
        // UpdateServiceRegistrationState: 3 = registered.
        return Variant(std::make_shared<PropertyBag>(
            "IUpdateServiceRegistration",
            std::vector<std::pair<std::string, Variant>>{{"RegistrationState", Variant(3)},
                                                         {"ServiceID", Variant(serviceId)},
                                                         {"IsPendingRegistrationWithAU", Variant(false)},
                                                         {"Service", service}}));
    }

    // Registers the catalogue file as a service, once it has been read as one.
    Variant addScanPackageService(const std::string& name, const std::string& file) {
        if (trim(file).empty()) fail(wuerr::InvalidArg, "The parameter is incorrect.");
        loadCatalog(*place_, source(), file, wuerr::InvalidFile, false);
        const std::string id = scanServiceId(name, file, readRecord(record()).size());
        writeRecord(source(), record(), kServicePrefix + id, {{"Name", name}, {"ScanFile", file}});
        return serviceObject(name, id, false, true);
    }

    Variant services() {
        std::vector<Variant> items{serviceObject("Windows Update", kWindowsUpdateServiceId, true, false)};
        for (const Section& s : readRecord(record())) {
            if (s.name.rfind(kServicePrefix, 0) != 0) continue;
            const std::string id = s.name.substr(std::string(kServicePrefix).size());
            if (platform::iequals(id, kWindowsUpdateServiceId)) continue;
            const bool withAU = (std::atol(s.value("Flags").c_str()) & addservice::RegisterServiceWithAU) != 0;
            items.push_back(serviceObject(serviceName(s, id), id, withAU, !s.value("ScanFile").empty()));
        }
        return Variant(std::make_shared<WuCollection>("IUpdateServiceCollection", std::move(items), true));
    }

    std::shared_ptr<const UpdateAgentPlace> place_;
    std::string clientApplicationId_;
};

class AgentInfo : public DispatchBase {
public:
    explicit AgentInfo(std::shared_ptr<const UpdateAgentPlace> place) : DispatchBase(kAgentInfoProgId) {
        method("GetInfo", 1, [this, place](Args a) {
            const std::string what = a[0].value.toString();
            if (platform::iequals(what, "ProductVersionString")) return Variant(readSettings(*place).agentVersion);
            if (platform::iequals(what, "ApiMajorVersion")) return Variant(2);
            if (platform::iequals(what, "ApiMinorVersion")) return Variant(0);
            fail(wuerr::InvalidArg, "The parameter is incorrect.");
        });
    }
};

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
            if (pos >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[pos]))) return false;
    }
    return pos == text.size();
}

std::shared_ptr<platform::Dispatch> newUpdateSession(std::shared_ptr<const UpdateAgentPlace> place) {
    return std::make_shared<Session>(std::move(place));
}
std::shared_ptr<platform::Dispatch> newUpdateServiceManager(std::shared_ptr<const UpdateAgentPlace> place) {
    return std::make_shared<ServiceManager>(std::move(place));
}
std::shared_ptr<platform::Dispatch> newUpdateCollection() {
    return std::make_shared<WuCollection>(kUpdateCollProgId, std::vector<Variant>{}, false);
}
std::shared_ptr<platform::Dispatch> newWebProxy() { return std::make_shared<WebProxy>(); }
std::shared_ptr<platform::Dispatch> newAgentInfo(std::shared_ptr<const UpdateAgentPlace> place) {
    return std::make_shared<AgentInfo>(std::move(place));
}

}  // namespace standins
