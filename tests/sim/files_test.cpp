// Windows paths on the simulated machine's drives.
#include <gtest/gtest.h>

#include <functional>

#include "platform/sim/sim_files.h"
#include "sim/sim_folder.h"

using platform::sim::MachineError;
using simtest::SimFolder;
using simtest::thrown;

TEST(SimFiles, NamesResolveCaseInsensitivelyAndNewOnesKeepTheirCase) {
    SimFolder f;
    f.write("drives/C/Program Files/VORN/App.txt", "x");
    auto m = f.open();
    struct Case {
        const char* windows;
        const char* host;  // below the machine folder
    } cases[] = {
        {"C:\\Program Files\\VORN\\App.txt", "drives/C/Program Files/VORN/App.txt"},
        {"c:\\PROGRAM FILES\\vorn\\app.TXT", "drives/C/Program Files/VORN/App.txt"},
        {"C:\\program files\\New Dir\\X.txt", "drives/C/Program Files/New Dir/X.txt"},
        {"\\program files\\vorn", "drives/C/Program Files/VORN"},
        {"C:\\Program Files\\VORN\\..\\.\\vorn\\App.txt", "drives/C/Program Files/VORN/App.txt"},
        {"C:\\Program Files\\VORN\\App.txt. ", "drives/C/Program Files/VORN/App.txt"},
        {"C:", "drives/C"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(m->hostPath(c.windows), f.root() / c.host) << c.windows;
    EXPECT_TRUE(m->files().folderExists("C:\\"));
}

TEST(SimFiles, UnknownDriveAndBadNamesFailCleanly) {
    SimFolder f;
    auto m = f.open();
    auto& fs = m->files();
    EXPECT_THROW(m->hostPath("Q:\\x"), MachineError);
    EXPECT_THROW(m->hostPath("\\\\server\\share\\x"), MachineError);
    EXPECT_THROW(m->hostPath("C:\\a<b"), MachineError);
    EXPECT_THROW(m->hostPath(""), MachineError);
    // An unknown drive and a name Windows refuses fail at different steps.
    for (const char* p : {"Q:\\x.txt", "C:\\a|b.txt"}) {
        EXPECT_FALSE(fs.fileExists(p)) << p;
        EXPECT_FALSE(fs.folderExists(p)) << p;
        EXPECT_FALSE(fs.findFirst(p)) << p;
        EXPECT_FALSE(fs.makeSureDirectoryPathExists(std::string(p) + "\\y\\")) << p;
        EXPECT_EQ(thrown([&] { fs.readAll(p); }), 53) << p;
        EXPECT_EQ(thrown([&] { fs.fileSize(p); }), 53) << p;
        EXPECT_EQ(thrown([&] { fs.writeAll(p, "x"); }), 76) << p;
        EXPECT_EQ(thrown([&] { fs.append(p, "x"); }), 76) << p;
        EXPECT_EQ(thrown([&] { fs.createFolder(p); }), 76) << p;
        EXPECT_EQ(thrown([&] { fs.deleteFolder(p); }), 76) << p;
        EXPECT_EQ(thrown([&] { fs.deleteFile(p); }), 53) << p;
        std::string buffer(64, '\0');
        EXPECT_EQ(fs.getShortPathName(p, buffer, 64), 0u) << p;
    }
    uint64_t a = 0, b = 0, c = 0;
    EXPECT_FALSE(fs.diskFreeSpace("Q:\\", a, b, c));
    EXPECT_EQ(m->system().lastError(), 3u);
}

TEST(SimFiles, ErrorNumbersAndLastErrors) {
    SimFolder f;
    f.write("drives/C/D/file.txt", "12345");
    f.write("drives/C/D/ro.txt", "ro");
    auto m = f.open();
    auto& fs = m->files();
    fs.setReadOnly("C:\\D\\ro.txt", true);
    struct Case {
        const char* what;
        std::function<void()> action;
        int number;
        uint32_t lastError;
    } cases[] = {
        {"size of a folder", [&] { fs.fileSize("C:\\D"); }, 53, 2},
        {"read a folder", [&] { fs.readAll("C:\\D"); }, 75, 5},
        {"read in a missing folder", [&] { fs.readAll("C:\\None\\x"); }, 76, 3},
        {"write over a folder", [&] { fs.writeAll("C:\\D", "x"); }, 75, 5},
        {"write a read-only file", [&] { fs.writeAll("C:\\D\\ro.txt", "x"); }, 70, 5},
        {"delete a read-only file", [&] { fs.deleteFile("C:\\D\\ro.txt"); }, 75, 5},
        {"create an existing folder", [&] { fs.createFolder("C:\\d"); }, 58, 183},
        {"create over a file", [&] { fs.createFolder("C:\\D\\file.txt"); }, 58, 183},
    };
    for (const auto& c : cases) {
        m->system().setLastError(0);
        EXPECT_EQ(thrown(c.action), c.number) << c.what;
        EXPECT_EQ(m->system().lastError(), c.lastError) << c.what;
    }
}

TEST(SimFiles, WildcardsAndFoldersOfOtherCase) {
    SimFolder f;
    f.write("drives/C/T/a.tmp", "1");
    f.write("drives/C/T/B.TMP", "2");
    f.write("drives/C/T/keep.txt", "3");
    f.write("drives/C/Data/x", "");
    auto m = f.open();
    auto& fs = m->files();

    EXPECT_TRUE(fs.findFirst("C:\\T\\*.TMP"));
    EXPECT_TRUE(fs.findFirst("C:\\T\\?.tmp"));
    EXPECT_FALSE(fs.findFirst("C:\\T\\*.log"));
    EXPECT_EQ(m->system().lastError(), 2u);
    EXPECT_FALSE(fs.findFirst("C:\\None\\*.*"));
    EXPECT_EQ(m->system().lastError(), 3u);

    fs.deleteFile("C:\\T\\*.tmp");  // Kill takes wildcards
    EXPECT_FALSE(f.exists("drives/C/T/a.tmp"));
    EXPECT_FALSE(f.exists("drives/C/T/B.TMP"));
    EXPECT_TRUE(f.exists("drives/C/T/keep.txt"));

    // Existing folders are reused whatever the case of their names.
    EXPECT_TRUE(fs.makeSureDirectoryPathExists("C:\\DATA\\New\\Deep\\file.txt"));
    EXPECT_TRUE(f.exists("drives/C/Data/New/Deep"));
    EXPECT_FALSE(fs.makeSureDirectoryPathExists("C:\\Data\\x\\y\\"));  // a file in the way
}

TEST(SimFiles, ShortNames) {
    struct Alias {
        const char* name;
        std::vector<std::string> siblings;
        const char* alias;
    } aliases[] = {
        {"Program Files", {"Program Files", "Program Files (x86)", "ProgramData"}, "PROGRA~1"},
        {"Program Files (x86)", {"Program Files", "Program Files (x86)", "ProgramData"}, "PROGRA~2"},
        {"ProgramData", {"Program Files", "Program Files (x86)", "ProgramData"}, "PROGRA~3"},
        {"My Documents.txt", {"My Documents.txt"}, "MYDOCU~1.TXT"},
        {"a.b.c", {"a.b.c"}, "AB~1.C"},
        {"longfilename.html", {"longfilename.html", "longfilename.htm"}, "LONGFI~2.HTM"},
        {"longfilename.htm", {"longfilename.html", "longfilename.htm"}, "LONGFI~1.HTM"},
        {"longfilename.txt", {"longfilename.html", "longfilename.txt"}, "LONGFI~1.TXT"},
        {"x+y z.txt", {"x+y z.txt"}, "X_YZ~1.TXT"},
        {".gitignore", {".gitignore"}, "GITIGN~1"},
    };
    for (const auto& a : aliases) EXPECT_EQ(platform::sim::shortAlias(a.name, a.siblings), a.alias) << a.name;

    struct Valid {
        const char* name;
        bool isShort;
    } names[] = {{"KPMDwld.exe", true}, {"readme", true},       {"12345678.123", true},
                 {"READ ME", false},    {"a.b.c", false},       {"toolongname.txt", false},
                 {"name.html", false},  {".x", false},          {"a+b.txt", false}};
    for (const auto& n : names) EXPECT_EQ(platform::sim::isShortName(n.name), n.isShort) << n.name;
}

TEST(SimFiles, GetShortPathName) {
    SimFolder f;
    f.write("drives/C/Program Files/VORN Agent/KPMDwld.exe", "");
    f.write("drives/C/Program Files (x86)/x", "");
    f.write("drives/C/\xC3\x89t\xC3\xA9.ini", "");  // UTF-8 in the folder
    auto m = f.open();
    auto& fs = m->files();
    struct Case {
        const char* path;
        const char* shortPath;
    } cases[] = {
        {"C:\\Program Files\\VORN Agent\\KPMDwld.exe", "C:\\PROGRA~1\\VORNAG~1\\KPMDwld.exe"},
        {"c:\\program files (x86)\\", "c:\\PROGRA~2\\"},
        {"C:\\Program Files\\vorn agent\\kpmdwld.EXE", "C:\\PROGRA~1\\VORNAG~1\\kpmdwld.EXE"},
        {"C:\\", "C:\\"},
        {"C:\\\xC9t\xE9.ini", "C:\\\xC9t\xE9.ini"},  // a short name outside ASCII, in the code page
    };
    for (const auto& c : cases) {
        std::string buffer(260, '\0');
        uint32_t n = fs.getShortPathName(c.path, buffer, 260);
        EXPECT_EQ(buffer.substr(0, n + 1), std::string(c.shortPath) + '\0') << c.path;
    }
    // Too small: the size needed, buffer untouched; exactly big enough: copied.
    const std::string full = "C:\\PROGRA~1\\VORNAG~1\\KPMDwld.exe";
    const auto len = static_cast<uint32_t>(full.size());
    std::string small(len, 'X');
    EXPECT_EQ(fs.getShortPathName("C:\\Program Files\\VORN Agent\\KPMDwld.exe", small, len), len + 1);
    EXPECT_EQ(small, std::string(len, 'X'));
    std::string exact(len + 1, 'X');
    EXPECT_EQ(fs.getShortPathName("C:\\Program Files\\VORN Agent\\KPMDwld.exe", exact, len + 1), len);
    EXPECT_EQ(exact, full + '\0');

    // Aliases resolve to the long names; an alias no name has does not.
    EXPECT_EQ(m->hostPath("C:\\progra~1\\VORNAG~1"), f.root() / "drives/C/Program Files/VORN Agent");
    EXPECT_FALSE(fs.folderExists("C:\\PROGRA~3"));

    std::string buffer(64, '\0');
    EXPECT_EQ(fs.getShortPathName("C:\\Program Files\\none.exe", buffer, 64), 0u);
    EXPECT_EQ(m->system().lastError(), 2u);
    EXPECT_EQ(fs.getShortPathName("C:\\None\\none.exe", buffer, 64), 0u);
    EXPECT_EQ(m->system().lastError(), 3u);
}

TEST(SimFiles, DiskSpaceAndDiskFull) {
    SimFolder f(std::string(simtest::kMinimalIni) + "[Drives]\r\nC=1000,10\r\nD=5000,4000\r\n");
    f.write("drives/E/.keep", "");
    auto m = f.open();
    auto& fs = m->files();
    auto freeOn = [&](const char* root) {
        uint64_t caller = 0, total = 0, free = 0;
        EXPECT_TRUE(fs.diskFreeSpace(root, caller, total, free)) << root;
        EXPECT_EQ(caller, free);
        return std::make_pair(total, free);
    };
    EXPECT_EQ(freeOn("C:\\"), std::make_pair(uint64_t{1000}, uint64_t{10}));
    EXPECT_EQ(freeOn("d:"), std::make_pair(uint64_t{5000}, uint64_t{4000}));  // configured, no folder
    EXPECT_GT(freeOn("E:\\").second, uint64_t{1} << 30);                      // a folder, plenty of room

    fs.writeAll("C:\\a.txt", "12345678");
    EXPECT_EQ(freeOn("C:\\").second, 2u);
    EXPECT_EQ(thrown([&] { fs.append("C:\\a.txt", "12345"); }), 61);
    EXPECT_EQ(m->system().lastError(), 112u);
    EXPECT_EQ(f.read("drives/C/a.txt"), "12345678");
    fs.writeAll("C:\\a.txt", "123");  // overwriting gives the difference back
    EXPECT_EQ(freeOn("C:\\").second, 7u);
    fs.deleteFile("C:\\a.txt");
    EXPECT_EQ(freeOn("C:\\").second, 10u);

    uint64_t a = 0, b = 0, c = 0;
    EXPECT_FALSE(fs.diskFreeSpace("C:\\No\\Such\\", a, b, c));
    EXPECT_EQ(m->system().lastError(), 3u);
}
