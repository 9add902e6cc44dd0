// Private-profile reads and writes with the Win32 calls' rules.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/sim/sim_machine.h"
#include "sim/sim_folder.h"

using simtest::SimFolder;

namespace {

const char* const kFile = "C:\\Data\\test.ini";
const char* const kHostFile = "drives/C/Data/test.ini";

const std::string kText =
    "; Top=comment\r\n"
    "[Main]\r\n"
    "Plain=value\r\n"
    "  Spaced  =   padded value   \r\n"
    "Tabbed\t=\tx\t\r\n"
    "Quoted=\"  kept blanks  \"\r\n"
    "Single='x'\r\n"
    "Mixed=\"x'\r\n"
    "OnlyQuote=\"\r\n"
    "Empty=\r\n"
    "NoEquals\r\n"
    "Eq=a=b\r\n"
    "Dup=first\r\n"
    "Dup=second\r\n"
    ";Comment=not a key\r\n"
    "Long=abcdefghij\r\n"
    "[main]\r\n"
    "Late=in a second section of the same name\r\n"
    "[ Other ]\n"
    "Plain=other\n"
    "[Broken\n"
    "Key=in a section without ]\n";

}  // namespace

TEST(SimProfile, ReadsLikeGetPrivateProfileString) {
    struct Case {
        const char* section;
        const char* key;
        const char* def;
        uint32_t size;
        const char* value;
    } cases[] = {
        {"Main", "Plain", "", 64, "value"},
        {"MAIN", "plain", "", 64, "value"},
        {"Main", "Spaced", "", 64, "padded value"},
        {"Main", "Tabbed", "", 64, "x"},
        {"Main", "Quoted", "", 64, "  kept blanks  "},
        {"Main", "Single", "", 64, "x"},
        {"Main", "Mixed", "", 64, "\"x'"},
        {"Main", "OnlyQuote", "", 64, "\""},
        {"Main", "Empty", "dflt", 64, ""},
        {"Main", "NoEquals", "dflt", 64, "dflt"},
        {"Main", "Eq", "", 64, "a=b"},
        {"Main", "Dup", "", 64, "first"},
        {"Main", ";Comment", "dflt", 64, "dflt"},
        {"Main", "Top", "dflt", 64, "dflt"},
        {"Main", "Late", "dflt", 64, "dflt"},
        {"Other", "Plain", "", 64, "other"},
        {"Nowhere", "Plain", "dflt", 64, "dflt"},
        {"Main", "Missing", "def  ", 64, "def"},
        {"Main", "Missing", "def\t", 64, "def\t"},  // only spaces go
        {" Main ", "  Plain ", "", 64, "value"},
        {"Broken", "Key", "", 64, "in a section without ]"},
        {"Main", "Missing", "  def", 64, "  def"},
        {"Main", "Long", "", 11, "abcdefghij"},
        {"Main", "Long", "", 10, "abcdefghi"},
        {"Main", "Long", "", 5, "abcd"},
        {"Main", "Long", "", 1, ""},
        {"Main", "Missing", "defaults", 4, "def"},
    };
    SimFolder f;
    f.write(kHostFile, kText);
    auto m = f.open();
    for (const auto& c : cases) {
        std::string buffer(c.size, 'X');
        uint32_t n = m->profile().getString(c.section, c.key, c.def, buffer, c.size, kFile);
        std::string where = std::string(c.section) + "/" + c.key + " size " + std::to_string(c.size);
        EXPECT_EQ(n, std::strlen(c.value)) << where;
        ASSERT_LT(n, buffer.size()) << where;
        EXPECT_EQ(buffer.substr(0, n), c.value) << where;
        EXPECT_EQ(buffer[n], '\0') << where;
    }
    // A cut value says so in the last error.
    std::string small(4, '\0');
    m->system().setLastError(0);
    EXPECT_EQ(m->profile().getString("Main", "Long", "", small, 4, kFile), 3u);
    EXPECT_EQ(m->system().lastError(), 234u);
    // A zero size copies nothing at all.
    std::string untouched = "XY";
    EXPECT_EQ(m->profile().getString("Main", "Plain", "", untouched, 0, kFile), 0u);
    EXPECT_EQ(untouched, "XY");
}

TEST(SimProfile, MissingFileOrDriveGivesTheDefault) {
    SimFolder f;
    auto m = f.open();
    for (const char* file : {"C:\\Data\\none.ini", "Q:\\none.ini", "C:\\No\\Folder\\x.ini"}) {
        std::string buffer(16, '\0');
        EXPECT_EQ(m->profile().getString("S", "K", "dflt", buffer, 16, file), 4u) << file;
        EXPECT_EQ(buffer.substr(0, 4), "dflt") << file;
    }
}

TEST(SimProfile, WritesLikeWritePrivateProfileString) {
    struct Case {
        const char* before;  // nullptr: no file yet
        const char* section;
        const char* key;
        const char* value;
        const char* after;
    } cases[] = {
        {nullptr, "S", "k", "v", "[S]\r\nk=v\r\n"},
        {"", "S", "k", " v ", "[S]\r\nk= v \r\n"},
        // The first matching key's line is replaced, the rest kept byte for byte.
        {"[S]\r\nk=old\r\nj=1\r\n", "S", " K ", "new", "[S]\r\nk=new\r\nj=1\r\n"},
        {"; c\n[A]\n x = 1 \n[S]\n  k = old  \nk=2\n", "s", "k", "new", "; c\n[A]\n x = 1 \n[S]\nk=new\nk=2\n"},
        // A new key goes after the section's last line that is not blank.
        {"[S]\r\na=1\r\n\r\n[T]\r\nb=2\r\n", "S", "c", "3", "[S]\r\na=1\r\nc=3\r\n\r\n[T]\r\nb=2\r\n"},
        {"[S]\r\na=1\r\n; note\r\n\r\n", "S", "c", "3", "[S]\r\na=1\r\n; note\r\nc=3\r\n\r\n"},
        {"[s]\r\n", " S ", " a ", "1", "[s]\r\na=1\r\n"},
        {"[S]\r\na=1", "S", "b", "2", "[S]\r\na=1\r\nb=2\r\n"},
        // Only the first section of a name is used.
        {"[S]\r\na=1\r\n[S]\r\nb=2\r\n", "S", "b", "3", "[S]\r\na=1\r\nb=3\r\n[S]\r\nb=2\r\n"},
        // A new section goes at the end of the file.
        {"[S]\r\na=1\r\n", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n"},
        {"[S]\r\na=1", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n"},
    };
    for (const auto& c : cases) {
        SimFolder f;
        f.write("drives/C/Data/.keep", "");
        if (c.before) f.write(kHostFile, c.before);
        auto m = f.open();
        EXPECT_TRUE(m->profile().writeString(c.section, c.key, c.value, kFile));
        EXPECT_EQ(f.read(kHostFile), c.after) << (c.before ? c.before : "(no file)");
    }
}

TEST(SimProfile, WrittenValueReadsBack) {
    SimFolder f;
    f.write("drives/C/Data/.keep", "");
    auto m = f.open();
    ASSERT_TRUE(m->profile().writeString("Sched", "LastDownload", "11/15/2026", "c:\\data\\TEST.INI"));
    std::string buffer(32, '\0');
    EXPECT_EQ(m->profile().getString("SCHED", "lastdownload", "", buffer, 32, kFile), 10u);
    EXPECT_EQ(buffer.substr(0, 10), "11/15/2026");
}

TEST(SimProfile, WriteFailures) {
    SimFolder f;
    f.write(kHostFile, "[S]\r\na=1\r\n");
    auto m = f.open();
    // The folder must exist.
    EXPECT_FALSE(m->profile().writeString("S", "a", "2", "C:\\Missing\\x.ini"));
    EXPECT_EQ(m->system().lastError(), 3u);
    EXPECT_FALSE(m->profile().writeString("S", "a", "2", "Q:\\x.ini"));
    EXPECT_EQ(m->system().lastError(), 3u);
    // A read-only file is left alone.
    m->files().setReadOnly(kFile, true);
    EXPECT_FALSE(m->profile().writeString("S", "a", "2", kFile));
    EXPECT_EQ(m->system().lastError(), 5u);
    EXPECT_EQ(f.read(kHostFile), "[S]\r\na=1\r\n");
}

TEST(SimProfile, NameWithoutFolderIsInTheWindowsFolder) {
    SimFolder f;
    f.write("drives/C/WINDOWS/win.ini", "[windows]\r\nload=x\r\n");
    auto m = f.open();
    std::string buffer(8, '\0');
    EXPECT_EQ(m->profile().getString("windows", "load", "", buffer, 8, "win.ini"), 1u);
    EXPECT_TRUE(m->profile().writeString("windows", "run", "y", "WIN.INI"));
    EXPECT_EQ(f.read("drives/C/WINDOWS/win.ini"), "[windows]\r\nload=x\r\nrun=y\r\n");
}
