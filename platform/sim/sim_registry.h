// The simulated registry: registry.reg in the .reg export format, kept as
// the text it was read from so that writing it back changes only what the
// pass changed.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/registry.h"

namespace platform::sim {

struct MachineState;

// A registry.reg file: the header, then keys with their values. Untouched
// parts keep their original text byte for byte; new keys and values are
// appended in regedit's own layout, with the file's line ending.
class RegDocument {
public:
    // Throws MachineError "registry.reg line N: ...".
    static RegDocument parse(std::string_view text);
    // An empty registry in the version 5.00 format.
    static RegDocument empty();
    std::string serialize() const;

    // True when the key is in the file or is the parent of a key that is
    // (an import creates every key on a path). Hive roots always exist.
    bool keyExists(Hive hive, const std::vector<std::string>& path) const;
    // Adds an empty key unless it exists; true when the document changed.
    bool createKey(Hive hive, const std::vector<std::string>& path);
    // The value's current definition; false when it is not there.
    bool findValue(Hive hive, const std::vector<std::string>& path, std::string_view name,
                   RegValue& out) const;
    // Sets a value, creating the key's entry when needed.
    void setValue(Hive hive, const std::vector<std::string>& path, std::string_view name,
                  const RegValue& value);
    // The names of a key's subkeys, in the order they first appear in the file.
    std::vector<std::string> subKeys(Hive hive, const std::vector<std::string>& path) const;

private:
    struct Value {
        std::string name;  // "" is the default value ("@")
        RegValue data;
    };
    struct Item {        // one value, or lines that are no value (blank, comment)
        bool isValue = false;
        Value value;
        std::string raw;  // original text with line ends; empty once changed
    };
    struct Key {
        Hive hive = Hive::LocalMachine;
        std::vector<std::string> path;
        std::string headerRaw;  // empty for a key added here
        std::vector<Item> items;
    };

    Key* lastKey(Hive hive, const std::vector<std::string>& path);
    Key& appendKey(Hive hive, const std::vector<std::string>& path);
    std::string renderValue(const Value& v) const;
    std::string renderHeader(const Key& k) const;

    // Keys by their hive and upper-cased path: where each is defined (its
    // entries of keys_, in file order), which exist (listed, or the parent of
    // one that is) and their subkeys, so that a lookup costs a hash, not a
    // walk over every key of the file.
    static std::string indexName(Hive hive, const std::vector<std::string>& path, size_t count);
    void indexKey(size_t at);

    std::string preamble_;  // the header line and what precedes the first key
    std::vector<Key> keys_;
    std::unordered_map<std::string, std::vector<size_t>> definitions_;
    std::unordered_set<std::string> existing_;
    std::unordered_map<std::string, std::vector<std::string>> children_;
    std::string eol_ = "\r\n";
    bool unicodeFormat_ = true;  // "Windows Registry Editor Version 5.00" (else REGEDIT4)
};

class SimRegistry : public Registry {
public:
    // Reads <folder>/registry.reg (a missing file is an empty registry).
    SimRegistry(MachineState& state, std::filesystem::path file);

    long openKey(Hive hive, std::string_view path, uint32_t access, RegView view,
                 std::unique_ptr<RegKey>& out) override;
    long createKey(Hive hive, std::string_view path, RegView view,
                   std::unique_ptr<RegKey>& out) override;
    // A user's hive file holds .reg text whose keys are under
    // HKEY_CURRENT_USER; loaded, it is read only and never written back.
    long loadUserHive(std::string_view name, std::string_view file) override;
    long unloadUserHive(std::string_view name) override;
    // Where a Windows path is in the machine folder (the machine's files).
    void setHostPaths(std::function<std::filesystem::path(std::string_view)> hostPath) { hostPath_ = std::move(hostPath); }
    std::vector<std::string> loadedHives() const;

    // Used by the open keys.
    RegDocument& document() { return doc_; }
    bool is64BitOS() const;
    // Writes the whole file; false (and the last error) when it cannot.
    bool save();
    MachineState& state() { return state_; }

    // Splits "A\B\C" into its names; false for an empty name inside the path.
    static bool splitPath(std::string_view path, std::vector<std::string>& out);
    // The key a 32-bit program reaches through the default view.
    std::vector<std::string> redirect(Hive hive, std::vector<std::string> path,
                                      RegView view) const;

private:
    struct LoadedHive {
        std::string name, file;
        RegDocument doc;
    };
    LoadedHive* findLoaded(std::string_view name);

    MachineState& state_;
    std::filesystem::path file_;
    RegDocument doc_;
    std::vector<std::unique_ptr<LoadedHive>> loaded_;
    std::function<std::filesystem::path(std::string_view)> hostPath_;
};

}  // namespace platform::sim
