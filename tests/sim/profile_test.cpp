// Private-profile rules of the simulated machine beyond the common ones:
// where new keys and sections are written, byte for byte, and the last errors.
#include <gtest/gtest.h>

#include "platform/sim/sim_profile.h"
#include "sim/sim_folder.h"

using simtest::SimFolder;

namespace {

const char* const kFile = "C:\\Data\\test.ini";
const char* const kHostFile = "drives/C/Data/test.ini";

}  // namespace

TEST(SimProfile, ReadsLikeGetPrivateProfileString) {
    SimFolder f;
    f.write(kHostFile,
            "[Main]\r\nPlain=value\r\nTabbed\t=\tx\t\r\nOnlyQuote=\"\r\nNoEquals\r\n"
            "[main]\r\nLate=in a second section of the same name\r\n"
            "[ Other ]\nPlain=other\n[Broken\nKey=in a section without ]\n");
    auto m = f.open();
    struct Case {
        const char *section, *key, *def, *value;
    } cases[] = {
        {" Main ", "  Plain ", "", "value"},  // the names given lose their spaces
        {"Main", "Tabbed", "", "x"},
        {"Main", "OnlyQuote", "", "\""},
        {"Main", "NoEquals", "dflt", "dflt"},
        {"Main", "Late", "dflt", "dflt"},  // only the first section of a name is read
        {"Other", "Plain", "", "other"},
        {"Broken", "Key", "", "in a section without ]"},
        {"Main", "Missing", "def\t", "def\t"},  // only spaces leave the default
        {"Main", "Missing", "  def", "  def"},
    };
    for (const auto& c : cases) {
        std::string buffer(64, 'X');
        uint32_t n = m->profile().getString(c.section, c.key, c.def, buffer, 64, kFile);
        EXPECT_EQ(buffer.substr(0, n + 1), std::string(c.value) + '\0') << c.section << "/" << c.key;
    }
    std::string small(4, '\0');
    m->system().setLastError(0);
    EXPECT_EQ(m->profile().getString("Main", "Late", "longer", small, 4, kFile), 3u);
    EXPECT_EQ(m->system().lastError(), 234u);  // a cut value says so
    std::string untouched = "XY";
    EXPECT_EQ(m->profile().getString("Main", "Plain", "", untouched, 0, kFile), 0u);
    EXPECT_EQ(untouched, "XY");
    std::string buffer(8, 'X');
    EXPECT_EQ(m->profile().getString("S", "K", "dflt", buffer, 8, "Q:\\none.ini"), 4u);  // no drive
}

TEST(SimProfile, WritesLikeWritePrivateProfileString) {
    struct Case {
        const char *before, *section, *key, *value, *after;
    } cases[] = {
        {"", "S", "k", " v ", "[S]\r\nk= v \r\n"},
        // The first matching key's whole line is replaced, the rest kept byte for byte.
        {"; c\n[A]\n k = 1 \n[S]\n  k = old  \nk=2\n", " s ", " K ", "new", "; c\n[A]\n k = 1 \n[S]\nk=new\nk=2\n"},
        // A new key goes after the section's last line that is not blank.
        {"[S]\r\na=1\r\n\r\n[T]\r\nb=2\r\n", "S", "c", "3", "[S]\r\na=1\r\nc=3\r\n\r\n[T]\r\nb=2\r\n"},
        {"[S]\r\na=1\r\n; note\r\n\r\n", "S", "c", "3", "[S]\r\na=1\r\n; note\r\nc=3\r\n\r\n"},
        {"[s]", "S", "b", "2", "[s]\r\nb=2\r\n"},
        // Only the first section of a name is used.
        {"[S]\r\na=1\r\n[S]\r\nb=2\r\n", "S", "b", "3", "[S]\r\na=1\r\nb=3\r\n[S]\r\nb=2\r\n"},
        // A new section goes at the end of the file.
        {"[S]\r\na=1\r\n", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n"},
        {"[S]\r\na=1", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n"},
    };
    for (const auto& c : cases) {
        SimFolder f;
        f.write(kHostFile, c.before);
        auto m = f.open();
        EXPECT_TRUE(m->profile().writeString(c.section, c.key, c.value, kFile));
        EXPECT_EQ(f.read(kHostFile), c.after) << c.before;
        // Later writes to the same file (remembered since the last one) give
        // what one write to its text gives, a change made behind its back included.
        const char* const more[][3] = {{c.section, "n", "1"}, {c.section, c.key, c.value}, {c.section, "N", "2"},
                                       {"T", "t", "x"}, {"", "back", ""}, {c.section, "n", "3"}, {c.section, "m", "4"}};
        for (const auto& w : more) {
            if (w[1] == std::string("back")) {
                f.write(kHostFile, f.read(kHostFile) + "x=behind\r\n");
                continue;
            }
            const std::string want = platform::sim::SimProfile::withKey(f.read(kHostFile), w[0], w[1], w[2]);
            EXPECT_TRUE(m->profile().writeString(w[0], w[1], w[2], kFile));
            EXPECT_EQ(f.read(kHostFile), want) << c.before << " then " << w[1] << "=" << w[2];
        }
    }
}

TEST(SimProfile, WriteFailuresAndTheWindowsFolder) {
    SimFolder f;
    f.write(kHostFile, "[S]\r\na=1\r\n");
    f.write("drives/C/WINDOWS/win.ini", "[windows]\r\nload=x\r\n");
    auto m = f.open();
    for (const char* file : {"C:\\Missing\\x.ini", "Q:\\x.ini"}) {
        EXPECT_FALSE(m->profile().writeString("S", "a", "2", file)) << file;
        EXPECT_EQ(m->system().lastError(), 3u) << file;
    }
    m->files().setReadOnly(kFile, true);
    EXPECT_FALSE(m->profile().writeString("S", "a", "2", kFile));
    EXPECT_EQ(m->system().lastError(), 5u);
    EXPECT_EQ(f.read(kHostFile), "[S]\r\na=1\r\n");

    // A name without a folder is in the Windows folder.
    std::string buffer(8, '\0');
    EXPECT_EQ(m->profile().getString("windows", "load", "", buffer, 8, "win.ini"), 1u);
    EXPECT_TRUE(m->profile().writeString("windows", "run", "y", "WIN.INI"));
    EXPECT_EQ(f.read("drives/C/WINDOWS/win.ini"), "[windows]\r\nload=x\r\nrun=y\r\n");
}
