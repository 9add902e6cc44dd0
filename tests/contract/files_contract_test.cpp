// Files and folders: existence, creation, contents, the runtime's error
// numbers, short 8.3 paths and free space.
#include <functional>
#include <iostream>

#include "contract_env.h"
#include "platform/errors.h"
#include "platform/files.h"

namespace {

using namespace platform;
using contract::ContractTest;

class Files : public ContractTest {};

TEST_F(Files, FailuresCarryTheRuntimesNumbers) {
    FileSystem& fs = files();
    fs.writeAll(at("locked.txt"), "x");
    fs.setReadOnly(at("locked.txt"), true);
    fs.createFolder(at("existing"));
    struct Case {
        const char* what;
        std::function<void()> call;
        int32_t number;
    };
    const Case cases[] = {
        {"size of a missing file", [&] { fs.fileSize(at("none.txt")); }, err::FileNotFound},
        {"read a missing file", [&] { fs.readAll(at("none.txt")); }, err::FileNotFound},
        {"read in a missing folder", [&] { fs.readAll(at("nofolder\\a.txt")); }, err::PathNotFound},
        {"write in a missing folder", [&] { fs.writeAll(at("nofolder\\a.txt"), "x"); }, err::PathNotFound},
        {"append in a missing folder", [&] { fs.append(at("nofolder\\a.txt"), "x"); }, err::PathNotFound},
        {"overwrite a read-only file", [&] { fs.writeAll(at("locked.txt"), "y"); }, err::PermissionDenied},
        {"append to a read-only file", [&] { fs.append(at("locked.txt"), "y"); }, err::PermissionDenied},
        {"delete a missing file", [&] { fs.deleteFile(at("none.txt")); }, err::FileNotFound},
        {"delete a read-only file", [&] { fs.deleteFile(at("locked.txt")); }, err::PathFileAccessError},
        {"create an existing folder", [&] { fs.createFolder(at("existing")); }, err::FileAlreadyExists},
        {"create below a missing folder", [&] { fs.createFolder(at("nofolder\\sub")); }, err::PathNotFound},
        {"delete a missing folder", [&] { fs.deleteFolder(at("nofolder")); }, err::PathNotFound},
        {"clear read-only of a missing file", [&] { fs.clearReadOnly(at("none.txt")); }, err::FileNotFound},
    };
    const bool readOnlyStopsWriting = env().readOnlyStopsWriting();
    for (const auto& c : cases) {
        if (c.number == err::PermissionDenied && !readOnlyStopsWriting) {
            std::cout << "[ SKIPPED  ] " << c.what << ": this file system lets read-only files be written\n";
            continue;
        }
        EXPECT_EQ(c.number, contract::errorOf(c.call).number()) << c.what;
    }
    if (readOnlyStopsWriting) {
        EXPECT_EQ("x", fs.readAll(at("locked.txt"))) << "the failed writes left it alone";
    }
}

TEST_F(Files, ContentsAreBytes) {
    const std::string bytes = std::string("line 1\r\nline 2\n\xE9\xFF tab\t", 21) + std::string(1, '\0') + "end";
    files().writeAll(at("data.bin"), bytes);
    EXPECT_EQ(bytes, files().readAll(at("data.bin")));
    EXPECT_EQ(bytes.size(), files().fileSize(at("data.bin")));
    files().append(at("data.bin"), "+more");
    EXPECT_EQ(bytes + "+more", files().readAll(at("data.bin")));
    files().writeAll(at("data.bin"), "short");  // overwrite truncates
    EXPECT_EQ("short", files().readAll(at("data.bin")));
    files().append(at("new.txt"), "created");  // append creates
    EXPECT_EQ("created", files().readAll(at("new.txt")));
    EXPECT_EQ(0u, (files().writeAll(at("empty.txt"), ""), files().fileSize(at("empty.txt"))));
}

// A finished download is put in place under its name at once, replacing what
// was there; its SHA-256 is read from the file.
TEST_F(Files, MovedIntoPlaceAndHashed) {
    files().writeAll(at("staged.partial"), "abc");
    files().writeAll(at("setup.exe"), "older build");
    files().moveFile(at("staged.partial"), at("setup.exe"));
    EXPECT_FALSE(files().fileExists(at("staged.partial")));
    EXPECT_EQ("abc", files().readAll(at("setup.exe")));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", files().sha256(at("setup.exe")));
    files().writeAll(at("empty.bin"), "");
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", files().sha256(at("empty.bin")));
    EXPECT_EQ(err::FileNotFound, contract::errorOf([&] { files().sha256(at("none.bin")); }).number());
    EXPECT_EQ(err::FileNotFound, contract::errorOf([&] { files().moveFile(at("none.bin"), at("x.bin")); }).number());
}

TEST_F(Files, ExistenceTellsFilesFromFolders) {
    files().writeAll(at("f.txt"), "x");
    files().createFolder(at("Sub Folder"));
    struct Case {
        std::string path;
        bool file, folder, found;
    };
    const Case cases[] = {
        {at("f.txt"), true, false, true},
        {at("F.TXT"), true, false, true},  // names ignore case
        {at("Sub Folder"), false, true, true},
        {at("sub folder"), false, true, true},
        {at("none"), false, false, false},
        {at("none\\f.txt"), false, false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.file, files().fileExists(c.path)) << c.path;
        EXPECT_EQ(c.folder, files().folderExists(c.path)) << c.path;
        EXPECT_EQ(c.found, files().findFirst(c.path)) << c.path;
    }
}

TEST_F(Files, MakeSureDirectoryPathExistsCreatesFoldersUpToTheLastBackslash) {
    EXPECT_TRUE(files().makeSureDirectoryPathExists(at("a\\b c\\d\\file.txt")));
    EXPECT_TRUE(files().folderExists(at("a\\b c\\d")));
    EXPECT_FALSE(files().fileExists(at("a\\b c\\d\\file.txt")));
    EXPECT_FALSE(files().folderExists(at("a\\b c\\d\\file.txt")));
    EXPECT_TRUE(files().makeSureDirectoryPathExists(at("x\\y\\")));
    EXPECT_TRUE(files().folderExists(at("x\\y")));
    EXPECT_TRUE(files().makeSureDirectoryPathExists(at("a\\b c\\d\\")));  // all there already
}

TEST_F(Files, ReadOnlyFilesGoWithTheirFolderOrOnceCleared) {
    files().makeSureDirectoryPathExists(at("tree\\sub\\"));
    files().writeAll(at("tree\\sub\\a.txt"), "a");
    files().writeAll(at("tree\\ro.txt"), "r");
    files().setReadOnly(at("tree\\ro.txt"), true);
    files().deleteFolder(at("tree"));
    EXPECT_FALSE(files().folderExists(at("tree")));

    files().writeAll(at("ro.txt"), "r");
    files().setReadOnly(at("ro.txt"), true);
    files().clearReadOnly(at("ro.txt"));
    files().deleteFile(at("ro.txt"));
    EXPECT_FALSE(files().fileExists(at("ro.txt")));
}

// 8.3 aliases differ between Windows ("PROGRA~1"), Wine ("PROG~FBU") and the
// simulated machine: what must hold is their shape and that they name the
// same file.
TEST_F(Files, ShortPathsNameTheSameFileWithoutBlanksOrLongNames) {
    const std::string longPath = at("A Long Folder Name\\a file with a long name.txt");
    files().makeSureDirectoryPathExists(longPath);
    files().writeAll(longPath, "same file");

    std::string buffer(260, '\0');
    uint32_t n = files().getShortPathName(longPath, buffer, 260);
    ASSERT_GT(n, 0u);
    ASSERT_LT(n, 260u);
    const std::string shortPath = buffer.substr(0, n);
    EXPECT_EQ('\0', buffer[n]);
    EXPECT_EQ(std::string::npos, shortPath.find(' ')) << shortPath;
    EXPECT_EQ(0, shortPath.compare(0, 3, "C:\\")) << shortPath;
    size_t begin = 3;
    while (begin < shortPath.size()) {  // every part fits 8.3
        size_t end = shortPath.find('\\', begin);
        if (end == std::string::npos) end = shortPath.size();
        std::string part = shortPath.substr(begin, end - begin);
        size_t dot = part.find('.');
        EXPECT_LE(dot == std::string::npos ? part.size() : dot, 8u) << part;
        if (dot != std::string::npos) {
            EXPECT_LE(part.size() - dot - 1, 3u) << part;
        }
        begin = end + 1;
    }
    EXPECT_EQ("same file", files().readAll(shortPath));

    std::string again(260, '\0');
    EXPECT_EQ(n, files().getShortPathName(shortPath, again, 260)) << "a short path is its own short path";
    EXPECT_EQ(shortPath, again.substr(0, n));

    std::string small(8, '\0');
    EXPECT_EQ(n + 1, files().getShortPathName(longPath, small, 8)) << "too small: the size needed";

    // A missing path has none; an 8.3 path keeps its names.
    EXPECT_EQ(0u, files().getShortPathName(at("no such folder\\x.txt"), buffer, 260));
    EXPECT_EQ(0u, files().getShortPathName(at("none.txt"), buffer, 260));
    files().createFolder(at("SHORT"));
    files().writeAll(at("SHORT\\A.TXT"), "x");
    n = files().getShortPathName(at("SHORT\\A.TXT"), buffer, 260);
    ASSERT_GT(n, 0u);
    EXPECT_EQ("\\SHORT\\A.TXT", buffer.substr(0, n).substr(n - 12)) << buffer.substr(0, n);
}

TEST_F(Files, FreeSpaceOfTheSystemDrive) {
    uint64_t freeToCaller = 0, total = 0, totalFree = 0;
    ASSERT_TRUE(files().diskFreeSpace("C:\\", freeToCaller, total, totalFree));
    EXPECT_GT(total, 0u);
    EXPECT_LE(totalFree, total);
    EXPECT_LE(freeToCaller, totalFree);
    EXPECT_FALSE(files().diskFreeSpace("Q:\\", freeToCaller, total, totalFree));
}

}  // namespace
