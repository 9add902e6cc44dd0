#include <cctype>

#include "platform/sim/sim_config.h"
#include "platform/sim/sim_objects.h"
#include "standins/dispatch_base.h"

namespace platform::sim {

namespace {

using standins::Collection;
using standins::DispatchBase;
using standins::PropertyBag;

constexpr const char* kSource = "SWbemServicesEx";

// SWbemObjectSet: Count, ItemIndex and For Each.
class ObjectSet : public Collection {
public:
    explicit ObjectSet(std::vector<Variant> items) : Collection("SWbemObjectSet", items) {
        method("ItemIndex", 1, [this](Args a) {
            auto all = enumerate();
            int64_t i = a[0].value.toLong();
            if (i < 0 || static_cast<uint64_t>(i) >= all.size()) fail(err::SubscriptOutOfRange);
            return all[static_cast<size_t>(i)];
        });
    }
};

using Props = std::vector<std::pair<std::string, Variant>>;

class WmiService : public DispatchBase {
public:
    WmiService(const MachineConfig& config, std::vector<std::string> processes)
        : DispatchBase(kSource) {
        long pid = 4;
        for (const auto& p : processes) {
            processes_.push_back(Props{{"Caption", Variant(p)},
                                       {"Name", Variant(p)},
                                       {"ProcessId", Variant(pid)}});
            pid += 4;
        }
        const OsVersion& os = config.os;
        std::string version = std::to_string(os.major) + "." + std::to_string(os.minor) + "." +
                              std::to_string(os.build);
        os_.push_back(Props{{"Caption", Variant(config.osCaption)},
                            {"CSDVersion", os.csdVersion.empty() ? Variant::null() : Variant(os.csdVersion)},
                            {"ServicePackMajorVersion", Variant(static_cast<long>(config.wmiServicePackMajor))},
                            {"Version", Variant(version)},
                            {"BuildNumber", Variant(std::to_string(os.build))},
                            {"OSArchitecture", Variant(config.is64BitOS ? "64-bit" : "32-bit")},
                            {"ProductType", Variant(static_cast<long>(os.productType))}});

        method("InstancesOf", 1, 3, [this](Args a) { return query(a[0].value.toString(), "", ""); });
        method("ExecQuery", 1, 4, [this](Args a) { return execQuery(a[0].value.toString()); });
    }

private:
    Variant query(const std::string& cls, const std::string& prop, const std::string& value) {
        const std::vector<Props>* rows = nullptr;
        if (iequals(cls, "Win32_Process")) rows = &processes_;
        else if (iequals(cls, "Win32_OperatingSystem")) rows = &os_;
        else fail(kWbemInvalidClass, "Invalid class");
        std::vector<Variant> items;
        for (const auto& row : *rows) {
            if (!prop.empty()) {
                const Variant* v = nullptr;
                for (const auto& [k, x] : row)
                    if (iequals(k, prop)) v = &x;
                if (!v) fail(kWbemInvalidQuery, "Invalid query");
                if (!iequals(v->toString(), value)) continue;
            }
            items.emplace_back(std::shared_ptr<Dispatch>(std::make_shared<PropertyBag>("SWbemObjectEx", row)));
        }
        return Variant(std::shared_ptr<Dispatch>(std::make_shared<ObjectSet>(std::move(items))));
    }

    // SELECT <anything> FROM <class> [WHERE <property> = '<value>']
    Variant execQuery(const std::string& text) {
        std::vector<std::string> words;
        std::string word;
        for (size_t i = 0; i <= text.size(); ++i) {
            char c = i < text.size() ? text[i] : ' ';
            if (c == '\'' || c == '"') {
                size_t close = text.find(c, i + 1);
                if (close == std::string::npos) fail(kWbemInvalidQuery, "Invalid query");
                if (!word.empty()) words.push_back(word);
                words.push_back(std::string(1, '\'') + text.substr(i + 1, close - i - 1));
                word.clear();
                i = close;
            } else if (std::isspace(static_cast<unsigned char>(c)) || c == '=') {
                if (!word.empty()) words.push_back(word);
                if (c == '=') words.push_back("=");
                word.clear();
            } else {
                word += c;
            }
        }
        size_t from = 0;
        while (from < words.size() && !iequals(words[from], "FROM")) ++from;
        if (words.empty() || !iequals(words[0], "SELECT") || from + 1 >= words.size())
            fail(kWbemInvalidQuery, "Invalid query");
        const std::string& cls = words[from + 1];
        if (from + 2 == words.size()) return query(cls, "", "");
        if (from + 6 != words.size() || !iequals(words[from + 2], "WHERE") || words[from + 4] != "=")
            fail(kWbemInvalidQuery, "Invalid query");
        std::string value = words[from + 5];
        if (!value.empty() && value[0] == '\'') value.erase(0, 1);
        return query(cls, words[from + 3], value);
    }

    std::vector<Props> processes_;
    std::vector<Props> os_;
};

}  // namespace

Object makeWmiService(const MachineConfig& config, std::vector<std::string> processes) {
    return Object(std::make_shared<WmiService>(config, std::move(processes)));
}

}  // namespace platform::sim
