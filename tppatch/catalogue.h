// The product list "PDList.xml": vendors, their products, how each shows in
// the registry, and each product's current update (docs/third-party.md).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tppatch/version.h"

namespace kpm {

// A text test: equal, or a wildcard pattern (* any run, ? one character);
// case never matters.
struct TextTest {
    enum class Kind { Is, Like };
    Kind kind = Kind::Is;
    std::string text;
    // The plain text a match must start with ("Adobe Acrobat" of
    // "Adobe Acrobat*"): what lets a search look at the named keys only.
    std::string Anchor() const;
    bool Holds(std::string_view value) const;
};

struct ValueTest {
    enum class Kind { Text, Exists, Missing, Dword, Version };
    enum class Op { Eq, Ne, Lt, Le, Gt, Ge };
    std::string value;  // the value's name ("" is the default value)
    Kind kind = Kind::Text;
    TextTest text;       // Kind::Text
    bool negated = false;    // Kind::Text: "isNot", the text is not the value's
    bool orMissing = false;  // a missing value holds too ("isNot", orMissing="yes")
    Op op = Op::Eq;      // Kind::Dword, Kind::Version
    uint32_t dword = 0;
    ProductVersion version;
};

struct VersionSource {
    std::string value;
    bool packed = false;  // a DWORD 0xMMmmBBBB, as Windows Installer's "Version"
    std::string pattern;  // a "like" pattern with one "{version}"; empty: the whole value
    bool buildInParentheses = false;  // "1.2.3 (build 4567)" is 1.2.3.4567
    // Where the value is missing: VersionMajor.VersionMinor, or the packed Version DWORD.
    enum class Fallback { None, MajorMinor, Packed };
    Fallback fallback = Fallback::None;
};

struct Detection {
    enum class Kind { Uninstall, Key };
    enum class Scope { Machine, Users };
    enum class View { Bits32, Bits64, Both };
    Kind kind = Kind::Uninstall;
    Scope scope = Scope::Machine;
    View view = View::Bits32;
    std::string keyPath;      // Kind::Key: below the hive
    bool hasKeyName = false;  // Kind::Uninstall: the subkey's name is tested
    TextTest keyName;
    std::vector<ValueTest> tests;
    VersionSource version;
};

struct Installer {
    // Where the installer puts the product: for the computer, or for the user
    // who runs it. The detection must look there, or the update never shows.
    enum class Scope { Machine, User };
    Scope scope = Scope::Machine;
    std::string name;  // in Components\Appcomp and on the gateway
    uint64_t size = 0;
    std::string md5;     // lower-case hex
    std::string sha256;  // lower-case hex, or empty
    std::string url;
};

struct ProductUpdate {
    std::string id, version, installedVersion;
    Installer installer;
};

struct Product {
    std::string id, name;
    enum class Arch { X86, X64, Any };
    Arch arch = Arch::X86;
    size_t vendor = 0;  // index in Catalogue::vendors
    Detection detect;
    ProductUpdate update;
};

struct Vendor {
    std::string id, name;
    size_t products = 0;  // how many of its products were read
};

struct Catalogue {
    std::vector<Vendor> vendors;
    std::vector<Product> products;
    // Entries refused, each "what: why", in the list's order.
    std::vector<std::string> refused;
};

// Reads the list with the XML document object; a file that cannot be read or
// is not a product list of this format throws platform::ComError whose
// description says why. A product or vendor that breaks a rule is left out
// and named in `refused`.
// A name an installer may have in its folder: no folder of its own, nothing
// Windows would read otherwise ("..", a device, a trailing dot or blank, a
// short-name alias).
bool IsInstallerName(const std::string& name);

Catalogue ReadCatalogue(const std::string& path);

// "x86", "x64", "any"; "32-bit", "64-bit", "both".
std::string ArchText(Product::Arch arch);
std::string ViewText(Detection::View view);

}  // namespace kpm
