// The simulated registry's file: registry.reg read and written back byte for
// byte, views written as Wow6432Node, result codes and malformed files.
#include <gtest/gtest.h>

#include "sim/sim_folder.h"

using platform::Hive;
using platform::RegKey;
using platform::RegValue;
using platform::RegView;
using platform::sim::MachineError;
using simtest::SimFolder;
namespace regaccess = platform::regaccess;
namespace regtype = platform::regtype;

namespace {

const std::string kHeader = "Windows Registry Editor Version 5.00\r\n\r\n";

// A comment, a 32-bit view key and an abbreviated hive name.
const std::string kSample =
    kHeader +
    "; agent settings\r\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\VORNOD]\r\n"
    "\"InstallationPath\"=\"C:\\\\Program Files\\\\VORN\"\r\n"
    "\"Count\"=dword:0000000a\r\n"
    "\r\n"
    "[HKLM\\SYSTEM\\CurrentControlSet\\Services\\wuauserv]\r\n"
    "\"Start\"=dword:00000002\r\n"
    "\r\n";

std::vector<uint8_t> bytes(std::string_view s) { return {s.begin(), s.end()}; }
// A REG_SZ's bytes: the text and its NUL.
std::vector<uint8_t> sz(std::string_view s) {
    auto b = bytes(s);
    b.push_back(0);
    return b;
}

std::unique_ptr<RegKey> open(platform::Registry& reg, Hive hive, const std::string& path,
                             RegView view = RegView::Default, uint32_t access = regaccess::AllAccess) {
    std::unique_ptr<RegKey> key;
    EXPECT_EQ(reg.openKey(hive, path, access, view, key), 0) << path;
    return key;
}

}  // namespace

// Each type as regedit writes it: the file is read into these values, and
// these values written give this file.
TEST(SimRegistry, EveryValueTypeRoundTripsByteForByte) {
    std::vector<uint8_t> blob;
    for (uint8_t i = 0; i < 30; ++i) blob.push_back(i);
    struct Case {
        const char* name;
        RegValue value;
        const char* line;
    } cases[] = {
        {"S", RegValue::string("a\\b\"c"), "\"S\"=\"a\\\\b\\\"c\"\r\n"},
        {"", RegValue::string("dflt"), "@=\"dflt\"\r\n"},
        {"D", RegValue::dword(0xABCDEF), "\"D\"=dword:00abcdef\r\n"},
        {"B", RegValue{regtype::Binary, blob},
         "\"B\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,\\\r\n"
         "  17,18,19,1a,1b,1c,1d\r\n"},
        {"E", RegValue{regtype::ExpandString, bytes(std::string_view("%X%\0", 4))},
         "\"E\"=hex(2):25,00,58,00,25,00,00,00\r\n"},
        {"M", RegValue{regtype::MultiString, bytes(std::string_view("a\0b\0\0", 5))},
         "\"M\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n"},
        {"Q", RegValue{regtype::Qword, {1, 2, 3, 4, 5, 6, 7, 8}}, "\"Q\"=hex(b):01,02,03,04,05,06,07,08\r\n"},
        {"Z", RegValue{regtype::String, bytes(std::string_view("a\0b\0", 4))},
         "\"Z\"=hex(1):61,00,00,00,62,00,00,00\r\n"},
    };
    std::string file = kHeader + "[HKEY_CURRENT_USER\\T]\r\n";
    for (const auto& c : cases) file += c.line;
    file += "\r\n";

    SimFolder read;
    read.write("registry.reg", file);
    auto m = read.open();
    auto k = open(m->registry(), Hive::CurrentUser, "t");
    for (const auto& c : cases) {
        RegValue v;
        ASSERT_EQ(k->queryValue(c.name, v), 0) << c.name;
        EXPECT_EQ(v.type, c.value.type) << c.name;
        EXPECT_EQ(v.data, c.value.data) << c.name;
    }

    SimFolder written;
    written.write("registry.reg", kHeader);
    auto w = written.open();
    std::unique_ptr<RegKey> t;
    ASSERT_EQ(w->registry().createKey(Hive::CurrentUser, "T", RegView::Default, t), 0);
    for (const auto& c : cases) ASSERT_EQ(t->setValue(c.name, c.value), 0) << c.name;
    EXPECT_EQ(written.read("registry.reg"), file);
}

TEST(SimRegistry, WritesBackOnlyWhatChanged) {
    SimFolder f;
    f.write("registry.reg", kSample);
    auto m = f.open();
    auto key = open(m->registry(), Hive::LocalMachine, "SOFTWARE\\VORNOD");
    ASSERT_EQ(key->setValue("count", RegValue::dword(11)), 0);
    ASSERT_EQ(key->setValue("New", RegValue::string("x")), 0);
    std::unique_ptr<RegKey> added;
    ASSERT_EQ(m->registry().createKey(Hive::LocalMachine, "SOFTWARE\\Policies\\X", RegView::View64, added), 0);
    ASSERT_EQ(added->setValue("V", RegValue::dword(1)), 0);
    // The abbreviated hive name stays as it was, and names the same hive.
    ASSERT_EQ(open(m->registry(), Hive::LocalMachine, "system\\currentcontrolset\\services\\WUAUSERV")
                  ->setValue("Start", RegValue::dword(3)), 0);
    std::string expected = kSample;
    expected.replace(expected.find("0000000a"), 8, "0000000b");
    expected.replace(expected.find("00000002"), 8, "00000003");
    expected.insert(expected.find("\r\n\r\n[HKLM") + 2, "\"New\"=\"x\"\r\n");
    expected += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Policies\\X]\r\n\"V\"=dword:00000001\r\n\r\n";
    EXPECT_EQ(f.read("registry.reg"), expected);
}

TEST(SimRegistry, KeepsTheFilesLineEndsAndMissingLastLineEnd) {
    SimFolder f;
    const std::string text = "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\A]\n\"x\"=\"1\"";
    f.write("registry.reg", text);
    auto m = f.open();
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(m->registry().createKey(Hive::CurrentUser, "B", RegView::Default, k), 0);
    ASSERT_EQ(k->setValue("y", RegValue::string("2")), 0);
    EXPECT_EQ(f.read("registry.reg"), text + "\n\n[HKEY_CURRENT_USER\\B]\n\"y\"=\"2\"\n\n");
}

TEST(SimRegistry, ViewsRedirectSoftwareOnA64BitOS) {
    struct Case {
        bool is64;
        Hive hive;
        const char* path;
        RegView view;
        const char* header;
    } cases[] = {
        {true, Hive::LocalMachine, "SOFTWARE\\A", RegView::Default, "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\A]"},
        {true, Hive::LocalMachine, "Software\\A", RegView::View64, "[HKEY_LOCAL_MACHINE\\Software\\A]"},
        {true, Hive::LocalMachine, "SOFTWARE\\Wow6432Node\\A", RegView::Default, "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\A]"},
        {true, Hive::LocalMachine, "SYSTEM\\A", RegView::Default, "[HKEY_LOCAL_MACHINE\\SYSTEM\\A]"},
        {true, Hive::CurrentUser, "SOFTWARE\\A", RegView::Default, "[HKEY_CURRENT_USER\\SOFTWARE\\A]"},
        {false, Hive::LocalMachine, "SOFTWARE\\A", RegView::Default, "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]"},
    };
    for (const auto& c : cases) {
        SimFolder f(std::string(simtest::kMinimalIni) + "Is64BitOS=" + (c.is64 ? "1" : "0") + "\r\n");
        auto m = f.open();
        std::unique_ptr<RegKey> k;
        ASSERT_EQ(m->registry().createKey(c.hive, c.path, c.view, k), 0);
        std::string file = f.read("registry.reg");
        EXPECT_NE(file.find(std::string(c.header) + "\r\n"), std::string::npos) << c.header << "\n" << file;
    }
}

TEST(SimRegistry, ASubKeyOfTheHiveRootIsRedirectedToo) {
    SimFolder f;
    f.write("registry.reg", kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\App]\r\n\"Bits\"=\"32\"\r\n\r\n");
    auto m = f.open();
    std::unique_ptr<RegKey> sub;
    ASSERT_EQ(open(m->registry(), Hive::LocalMachine, "")->createSubKey("SOFTWARE\\App", sub), 0);
    RegValue v;
    ASSERT_EQ(sub->queryValue("Bits", v), 0);
    EXPECT_EQ(v.data, sz("32"));
}

TEST(SimRegistry, ResultCodesAndImpliedKeys) {
    SimFolder f;
    f.write("registry.reg", kSample);
    auto m = f.open();
    auto& reg = m->registry();
    std::unique_ptr<RegKey> k;
    RegValue v;
    EXPECT_EQ(reg.openKey(Hive::LocalMachine, "SOFTWARE\\\\VORNOD", regaccess::Read, RegView::Default, k), 87);
    // Parents of a key in the file exist, as an import creates them.
    EXPECT_EQ(reg.openKey(Hive::LocalMachine, "SYSTEM\\CurrentControlSet", regaccess::Read, RegView::Default, k), 0);
    EXPECT_EQ(k->queryValue("Start", v), 2);

    auto readOnly = open(reg, Hive::LocalMachine, "SOFTWARE\\VORNOD", RegView::Default, regaccess::Read);
    EXPECT_EQ(readOnly->createSubKey("Sub", k), 5);
    auto writeOnly = open(reg, Hive::LocalMachine, "SOFTWARE\\VORNOD", RegView::Default, regaccess::SetValue);
    EXPECT_EQ(writeOnly->queryValue("Count", v), 5);
    EXPECT_EQ(f.read("registry.reg"), kSample);  // nothing was written
    // An implied key gets an entry of its own when written.
    ASSERT_EQ(open(reg, Hive::LocalMachine, "SYSTEM\\CurrentControlSet")->setValue("X", RegValue::string("y")), 0);
    EXPECT_EQ(f.read("registry.reg"),
              kSample + "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet]\r\n\"X\"=\"y\"\r\n\r\n");
}

TEST(SimRegistry, MissingFileIsAnEmptyRegistryCreatedOnWrite) {
    SimFolder f;
    {
        auto m = f.open();
        std::unique_ptr<RegKey> k;
        ASSERT_EQ(m->registry().createKey(Hive::CurrentUser, "A", RegView::Default, k), 0);
    }
    EXPECT_EQ(f.read("registry.reg"), kHeader + "[HKEY_CURRENT_USER\\A]\r\n\r\n");
}

TEST(SimRegistry, MalformedFilesNameTheLine) {
    const std::string key = "[HKEY_CURRENT_USER\\A]\r\n";
    struct Case {
        std::string text;
        const char* message;
    } cases[] = {
        {"REGEDIT5\r\n", "registry.reg line 1: expected the header"},
        {kHeader + "[HKEY_FOO\\X]\r\n", "registry.reg line 3: unknown root key \"HKEY_FOO\""},
        {kHeader + "\"a\"=\"b\"\r\n", "registry.reg line 3: value before the first [key]"},
        {kHeader + key + "\"a\"=dword:xyz\r\n", "registry.reg line 4: dword: needs 1 to 8 hex digits"},
        {kHeader + key + "\"a\"=\"C:\\Temp\"\r\n", "registry.reg line 4: bad escape \\T"},
        {kHeader + key + "\"a\"=\"open\r\n", "registry.reg line 4: quoted text is not closed"},
        {kHeader + key + "\"a\"=hex:00,\\\r\n", "registry.reg line 4: continued value at the end of the file"},
        {kHeader + key + "\"a\"=hex:00,\\\r\n  0g\r\n", "registry.reg line 5: bad byte \"0g\""},
        {kHeader + key + "[HKEY_CURRENT_USER\\B\r\n", "registry.reg line 4: key line does not end with ]"},
        {kHeader + key + "\"a\"=-\r\n", "registry.reg line 4: deleting values (=-) is not supported"},
        {kHeader + "[-HKEY_CURRENT_USER\\A]\r\n", "registry.reg line 3: deleting keys"},
        {kHeader + key + "junk\r\n", "registry.reg line 4: expected [key]"},
        {kHeader + key + "\"a\" \"b\"\r\n", "registry.reg line 4: expected = after the value name"},
        {std::string("\xFF\xFEW\0", 4), "registry.reg line 1: UTF-16 text is not supported"},
    };
    for (const auto& c : cases) {
        SimFolder f;
        f.write("registry.reg", c.text);
        try {
            f.open();
            ADD_FAILURE() << "no error for: " << c.text;
        } catch (const MachineError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(c.message, 0), 0u) << e.what();
            EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos);
        }
    }
}

TEST(SimRegistry, Regedit4FilesKeepAnsiText) {
    SimFolder f;
    f.write("registry.reg", "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\A]\r\n\"P\"=hex(2):25,58,25,00\r\n\r\n");
    auto m = f.open();
    RegValue v;
    ASSERT_EQ(open(m->registry(), Hive::CurrentUser, "a")->queryValue("p", v), 0);
    EXPECT_EQ(v.data, bytes(std::string_view("%X%\0", 4)));
}

// The file is UTF-8: a letter the machine's code page lacks is '?' to the
// program, a letter it has is its byte. A file in ANSI is read in the code
// page, opened by its names, and written back in UTF-8.
TEST(SimRegistry, TextIsUtf8InTheFileAndTheCodePageToTheProgram) {
    SimFolder f;
    f.write("registry.reg", kHeader + "[HKEY_CURRENT_USER\\A]\r\n\"V\"=\"a\xEF\xBC\x8F" "b \xC3\xA9\"\r\n\r\n");
    {
        auto m = f.open();
        RegValue v;
        ASSERT_EQ(open(m->registry(), Hive::CurrentUser, "A")->queryValue("V", v), 0);
        EXPECT_EQ(v.data, sz("a?b \xE9"));
    }
    f.write("registry.reg", "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\\xC9t\xE9]\r\n\"Caf\xE9\"=\"\xE0\"\r\n\r\n");
    auto m = f.open();
    auto key = open(m->registry(), Hive::CurrentUser, "\xC9T\xC9");
    RegValue v;
    ASSERT_EQ(key->queryValue("CAF\xC9", v), 0);
    EXPECT_EQ(v.data, sz("\xE0"));
    ASSERT_EQ(key->setValue("N", RegValue::dword(1)), 0);
    EXPECT_NE(f.read("registry.reg").find("[HKEY_CURRENT_USER\\\xC3\x89t\xC3\xA9]"), std::string::npos);
}
