// Private-profile (INI) files: what GetPrivateProfileStringA reads from a
// given text, counts and truncation, and what WritePrivateProfileStringA writes.
#include "contract_env.h"
#include "platform/files.h"
#include "platform/profile.h"

namespace {

using namespace platform;
using contract::ContractTest;

class Ini : public ContractTest {
protected:
    // The value and the returned count, through a buffer of `size` characters.
    std::pair<std::string, uint32_t> read(std::string_view section, std::string_view key,
                                          std::string_view def, const std::string& file,
                                          uint32_t size = 256) {
        std::string buffer(size, '\x7f');
        uint32_t n = profile().getString(section, key, def, buffer, size, file);
        size_t nul = buffer.find('\0');
        EXPECT_NE(std::string::npos, nul) << "the result is NUL-terminated";
        EXPECT_EQ(n, nul) << "the count is the length of the text copied";
        return {buffer.substr(0, nul), n};
    }
};

const char* kAgentIni =
    "; the agent's settings\r\n"
    "[ProxySettings]\r\n"
    "ProxyIP =   10.0.0.1   \r\n"
    "  ProxyPort=8080\r\n"
    "Quoted=\"  spaced out  \"\r\n"
    "Single='abc'\r\n"
    "Unbalanced=\"abc\r\n"
    "Inner=a \"b\" c\r\n"
    "Empty=\r\n"
    "WithEquals=a=b=c\r\n"
    "Comment=value ; not a comment\r\n"
    "Twice=first\r\n"
    "Twice=second\r\n"
    ";Hidden=yes\r\n"
    "\r\n"
    "[Other]\r\n"
    "ProxyIP=other\r\n";

TEST_F(Ini, ReadsValuesAsTheSystemDoes) {
    const std::string file = at("agent.ini");
    files().writeAll(file, kAgentIni);
    struct Case {
        const char *section, *key, *def, *expected;
    };
    const Case cases[] = {
        {"ProxySettings", "ProxyIP", "d", "10.0.0.1"},          // blanks around trimmed
        {"proxysettings", "PROXYPORT", "d", "8080"},            // names ignore case; key indented
        {"ProxySettings", "Quoted", "d", "  spaced out  "},     // one pair of quotes removed
        {"ProxySettings", "Single", "d", "abc"},                // single quotes too
        {"ProxySettings", "Unbalanced", "d", "\"abc"},          // an unmatched quote stays
        {"ProxySettings", "Inner", "d", "a \"b\" c"},           // inner quotes stay
        {"ProxySettings", "Empty", "d", ""},                    // present but empty: not the default
        {"ProxySettings", "WithEquals", "d", "a=b=c"},          // the first '=' splits
        {"ProxySettings", "Comment", "d", "value ; not a comment"},
        {"ProxySettings", "Twice", "d", "first"},               // the first of two
        {"ProxySettings", "Hidden", "d", "d"},                  // a comment line is no key
        {"Other", "ProxyIP", "d", "other"},                     // each section its own
        {"ProxySettings", "Missing", "fallback", "fallback"},
        {"NoSection", "ProxyIP", "fallback", "fallback"},
        {"ProxySettings", "Missing", "trailing   ", "trailing"},  // a default loses trailing blanks
        {"ProxySettings", "Missing", "", ""},
    };
    for (const auto& c : cases) {
        auto [value, n] = read(c.section, c.key, c.def, file);
        EXPECT_EQ(c.expected, value) << "[" << c.section << "] " << c.key;
    }
}

TEST_F(Ini, AMissingFileGivesTheDefault) {
    auto [value, n] = read("S", "K", "the default", at("none.ini"));
    EXPECT_EQ("the default", value);
    EXPECT_EQ(11u, n);
    auto [v2, n2] = read("S", "K", "x", at("no folder\\none.ini"));
    EXPECT_EQ("x", v2);
}

TEST_F(Ini, LongValuesAreTruncatedToTheBufferAndCountedAsCopied) {
    const std::string longValue(300, 'v');
    const std::string file = at("long.ini");
    files().writeAll(file, "[S]\r\nK=" + longValue + "\r\nShort=abc\r\n");
    struct Case {
        const char* key;
        const char* def;
        uint32_t size;
        std::string expected;
    };
    const Case cases[] = {
        {"K", "", 256, std::string(255, 'v')},
        {"K", "", 301, longValue},
        {"K", "", 300, std::string(299, 'v')},
        {"Short", "", 4, "abc"},
        {"Short", "", 3, "ab"},
        {"Short", "", 2, "a"},
        {"Missing", "defaultvalue", 5, "defa"},  // the default is truncated too
    };
    for (const auto& c : cases) {
        auto [value, n] = read("S", c.key, c.def, file, c.size);
        EXPECT_EQ(c.expected, value) << c.key << " in " << c.size;
        EXPECT_EQ(c.expected.size(), n) << c.key << " in " << c.size;
    }
}

TEST_F(Ini, WritingCreatesTheFileAndTheSection) {
    const std::string file = at("SchPatch.ini");
    ASSERT_FALSE(files().fileExists(file));
    ASSERT_TRUE(profile().writeString("DowSchTime", "LDwnRDate", "20261115", file));
    EXPECT_EQ("[DowSchTime]\r\nLDwnRDate=20261115\r\n", files().readAll(file));

    ASSERT_TRUE(profile().writeString("TPDowSchTime", "LDwnRDate", "20261116", file));
    ASSERT_TRUE(profile().writeString("dowschtime", "Other", "x", file));
    ASSERT_TRUE(profile().writeString("DowSchTime", "ldwnrdate", "20261117", file));  // replaces
    EXPECT_EQ("20261117", read("DowSchTime", "LDwnRDate", "", file).first);
    EXPECT_EQ("x", read("DowSchTime", "Other", "", file).first);
    EXPECT_EQ("20261116", read("TPDowSchTime", "LDwnRDate", "", file).first);

    std::string text = files().readAll(file);
    EXPECT_EQ(std::string::npos, text.find("20261115")) << text;
    EXPECT_EQ(text.find("[DowSchTime]"), text.rfind("[DowSchTime]")) << "one section: " << text;
    EXPECT_EQ(std::string::npos, text.find("[dowschtime]")) << text;
}

TEST_F(Ini, WritingIntoAMissingFolderFails) {
    EXPECT_FALSE(profile().writeString("S", "K", "V", at("no folder\\x.ini")));
    EXPECT_FALSE(files().folderExists(at("no folder")));
}

}  // namespace
