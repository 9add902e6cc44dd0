// The zip readers (minizip and the zlib reader, one table for both), the zip
// component's stand-in over them, and file MD5 against md5sum. Archives are
// made at test time by the `zip` tool; names a zip tool refuses to store
// ("../evil.txt") are put in afterwards with Python's zipfile.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/automation.h"
#include "standins/md5.h"
#include "standins/zip_archive.h"
#include "standins/zip_component.h"
#include "support/test_machine.h"

namespace {

namespace fs = std::filesystem;
using standins::ZipReader;

void writeFile(const fs::path& p, const std::string& bytes) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << bytes;
}

void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// Where the first entry's data starts in an archive (after its local header).
size_t firstDataOffset(const std::string& zip) {
    auto le16 = [&](size_t at) {
        return static_cast<size_t>(static_cast<unsigned char>(zip[at]) |
                                   (static_cast<unsigned char>(zip[at + 1]) << 8));
    };
    return 30 + le16(26) + le16(28);
}

// A throw-away folder with every archive the tests read, made once.
class Scratch {
public:
    static Scratch& get() {
        static Scratch s;
        return s;
    }
    ~Scratch() {
        std::error_code ec;
        fs::remove_all(root_, ec);
    }
    const fs::path& root() const { return root_; }
    fs::path zip(const std::string& name) const { return root_ / "zips" / name; }

    const std::string top = repeat("the top file, compressed well\n", 200);
    const std::string inner = repeat("inner\n", 50);
    std::string stored;  // every byte value, stored uncompressed

private:
    Scratch() {
        const char* tmp = std::getenv("TMPDIR");
        std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/kpm-zip-XXXXXX";
        if (!mkdtemp(tmpl.data())) std::abort();
        root_ = tmpl;
        for (int i = 0; i < 40; ++i)
            for (int b = 0; b < 256; ++b) stored += static_cast<char>(b);

        const fs::path src = root_ / "src";
        writeFile(src / "top.txt", top);
        writeFile(src / "sub" / "inner.txt", inner);
        writeFile(src / "data.bin", stored);
        writeFile(src / "empty.txt", "");
        writeFile(root_ / "rename.py",
                  "import sys, zipfile\n"
                  "src, dst = sys.argv[1], sys.argv[2]\n"
                  "names = dict(a.split('=', 1) for a in sys.argv[3:])\n"
                  "with zipfile.ZipFile(src) as zi, zipfile.ZipFile(dst, 'w') as zo:\n"
                  "    for info in zi.infolist():\n"
                  "        data = zi.read(info)\n"
                  "        info.filename = names.get(info.filename, info.filename)\n"
                  "        zo.writestr(info, data)\n");
        fs::create_directories(root_ / "zips");

        const std::string cd = "cd '" + src.string() + "' && ";
        const std::string z = root_.string() + "/zips/";
        run(cd + "zip -q -r " + z + "normal.zip top.txt sub");
        run(cd + "zip -q -0 " + z + "stored.zip data.bin");
        run(cd + "zip -q -0 " + z + "two.zip top.txt data.bin");
        run(cd + "zip -q " + z + "emptyentry.zip empty.txt");
        run(cd + "zip -q -P secret " + z + "encrypted.zip top.txt");
        run("cp " + z + "normal.zip " + z + "comment.zip && echo 'a trailing comment' | zip -q -z " + z +
            "comment.zip");
        const std::string py = "python3 '" + (root_ / "rename.py").string() + "' ";
        run(py + z + "normal.zip " + z + "dotdot.zip sub/inner.txt=../evil.txt");
        run(py + z + "normal.zip " + z + "absolute.zip sub/inner.txt=/abs.txt");
        run(py + z + "normal.zip " + z + "backslash.zip sub/inner.txt=sub\\\\..\\\\..\\\\x.txt");

        const std::string normal = kpmtest::readHostFile(zip("normal.zip"));
        writeFile(zip("truncated.zip"), normal.substr(0, normal.size() / 2));
        writeFile(zip("tailcut.zip"), normal.substr(0, normal.size() - 5));
        // 50 bytes taken out of the first entry's data: the directory's offsets no longer fit.
        writeFile(zip("hollow.zip"), normal.substr(0, firstDataOffset(normal) + 10) +
                                         normal.substr(firstDataOffset(normal) + 60));
        std::string bad = kpmtest::readHostFile(zip("stored.zip"));
        bad[firstDataOffset(bad) + 1000] ^= 0x5A;
        writeFile(zip("badstored.zip"), bad);
        // The second of two stored entries damaged: the first is unpacked before it is met.
        bad = kpmtest::readHostFile(zip("two.zip"));
        bad[bad.find(stored.substr(0, 256)) + 300] ^= 0x5A;
        writeFile(zip("badsecond.zip"), bad);
        bad = normal;
        bad[firstDataOffset(bad) + 20] ^= 0x5A;
        writeFile(zip("baddeflate.zip"), bad);
        writeFile(zip("empty.zip"), "");
        writeFile(zip("text.zip"), "this is plain text, not an archive\n");
    }

    fs::path root_;
};

// ---- the readers ------------------------------------------------------------

struct Backend {
    const char* name;
    std::unique_ptr<ZipReader> (*open)(const std::string&, std::string&);
};
const Backend kBackends[] = {{"minizip", standins::openZipMinizip}, {"zlib", standins::openZipZlib}};

constexpr const char* kAnyError = "*";

struct Entry {
    std::string name;
    std::string content;  // expected bytes when it extracts
    std::string error;    // when not empty: extract fails with this text (kAnyError: any)
};

struct ReaderCase {
    const char* archive;
    const char* openError;  // null when the archive opens
    std::vector<Entry> entries;
};

TEST(ZipReaders, BothBackendsReadTheSameArchivesAlike) {
    Scratch& s = Scratch::get();
    const std::vector<Entry> normal = {{"top.txt", s.top, ""}, {"sub/", "", ""}, {"sub/inner.txt", s.inner, ""}};
    const ReaderCase cases[] = {
        {"normal.zip", nullptr, normal},
        {"comment.zip", nullptr, normal},
        {"stored.zip", nullptr, {{"data.bin", s.stored, ""}}},
        {"emptyentry.zip", nullptr, {{"empty.txt", "", ""}}},
        // Names are the reader's business only as text; refusing them is the component's.
        {"dotdot.zip", nullptr, {{"top.txt", s.top, ""}, {"sub/", "", ""}, {"../evil.txt", s.inner, ""}}},
        {"encrypted.zip", nullptr, {{"top.txt", "", standins::ziperr::kEncrypted}}},
        {"badstored.zip", nullptr, {{"data.bin", "", standins::ziperr::kCrc}}},
        {"baddeflate.zip", nullptr, {{"top.txt", "", kAnyError}, {"sub/", "", ""}, {"sub/inner.txt", s.inner, ""}}},
        {"truncated.zip", standins::ziperr::kNotZip, {}},
        {"tailcut.zip", standins::ziperr::kNotZip, {}},
        {"hollow.zip", kAnyError, {}},
        {"empty.zip", standins::ziperr::kNotZip, {}},
        {"text.zip", standins::ziperr::kNotZip, {}},
        {"missing.zip", "cannot open the file", {}},
    };
    for (const Backend& b : kBackends) {
        for (const ReaderCase& c : cases) {
            SCOPED_TRACE(std::string(b.name) + " " + c.archive);
            std::string error;
            auto reader = b.open(s.zip(c.archive).string(), error);
            if (c.openError) {
                EXPECT_EQ(reader, nullptr);
                if (std::string(c.openError) != kAnyError) { EXPECT_EQ(error, c.openError); }
                EXPECT_NE(error, "");
                continue;
            }
            ASSERT_NE(reader, nullptr) << error;
            ASSERT_EQ(reader->entries().size(), c.entries.size());
            for (size_t i = 0; i < c.entries.size(); ++i) {
                const Entry& want = c.entries[i];
                const standins::ZipEntry& got = reader->entries()[i];
                EXPECT_EQ(got.name, want.name);
                EXPECT_EQ(got.isFolder, want.name.back() == '/');
                std::string bytes, why;
                const bool ok = reader->extract(
                    i, [&](const char* d, size_t n) { return bytes.append(d, n), true; }, why);
                if (want.error.empty()) {
                    EXPECT_TRUE(ok) << got.name << ": " << why;
                    EXPECT_EQ(got.size, want.content.size());
                    EXPECT_TRUE(bytes == want.content) << got.name;
                } else {
                    EXPECT_FALSE(ok) << got.name;
                    if (want.error != kAnyError) { EXPECT_EQ(why, want.error) << got.name; }
                    EXPECT_FALSE(why.empty());
                }
            }
            // A sink that refuses stops the entry with the reader's own words.
            std::string why;
            if (!c.entries.empty() && c.entries[0].error.empty() && !c.entries[0].content.empty()) {
                EXPECT_FALSE(reader->extract(0, [](const char*, size_t) { return false; }, why));
                EXPECT_EQ(why, standins::ziperr::kSink);
            }
        }
    }
}

// Every prefix of an archive and every single damaged byte: an error or the
// right bytes, never a crash or a read out of bounds (the suite runs under ASan).
TEST(ZipReaders, DamagedArchivesFailCleanly) {
    Scratch& s = Scratch::get();
    const std::string normal = kpmtest::readHostFile(s.zip("normal.zip"));
    const fs::path probe = s.root() / "probe.zip";
    auto readAll = [&](const Backend& b) {
        std::string error;
        auto reader = b.open(probe.string(), error);
        if (!reader) {
            EXPECT_NE(error, "");
            return;
        }
        for (size_t i = 0; i < reader->entries().size(); ++i) {
            std::string bytes, why;
            if (reader->extract(i, [&](const char* d, size_t n) { return bytes.append(d, n), true; }, why)) {
                EXPECT_TRUE(bytes == s.top || bytes == s.inner || bytes.empty());
            } else {
                EXPECT_NE(why, "");
            }
        }
    };
    for (const Backend& b : kBackends) {
        SCOPED_TRACE(b.name);
        for (size_t len = 0; len < normal.size(); ++len) {
            writeFile(probe, normal.substr(0, len));
            readAll(b);
        }
        for (size_t at = 0; at < normal.size(); ++at) {
            std::string bad = normal;
            bad[at] = static_cast<char>(bad[at] ^ 0xFF);
            writeFile(probe, bad);
            readAll(b);
        }
    }
}

TEST(ZipReaders, EntryNamesThatLeaveTheFolderAreUnsafe) {
    const struct {
        std::string name;
        bool safe;
    } cases[] = {
        {"a.txt", true},       {"sub/a.txt", true},   {"sub/", true},       {".hidden", true},
        {"a..b/c", true},      {"..a", true},         {"", false},          {"/abs.txt", false},
        {"\\abs.txt", false},  {"a\\b.txt", false},   {"C:x.txt", false},   {"c:/x.txt", false},
        {"a:stream", false},   {"..", false},         {"../x", false},      {"a/../../x", false},
        {"a/..", false},       {"...", false},        {".. /x", false},     {"./a", false},
        {"a//b", false},       {std::string("a\0/../b", 7), false},
    };
    for (const auto& c : cases) EXPECT_EQ(standins::isSafeEntryName(c.name), c.safe) << c.name;
}

// ---- the component ----------------------------------------------------------

// The component runs over a simulated machine's stand-in host, as the sim's
// passes use it; the archives are copied onto its drive C:.
// Every file below `folder`, relative, with its bytes.
std::map<std::string, std::string> filesBelow(const fs::path& folder) {
    std::map<std::string, std::string> out;
    if (!fs::exists(folder)) return out;
    for (const auto& e : fs::recursive_directory_iterator(folder))
        if (e.is_regular_file()) out[fs::relative(e.path(), folder).string()] = kpmtest::readHostFile(e.path());
    return out;
}

std::vector<std::string> names(const std::map<std::string, std::string>& files) {
    std::vector<std::string> out;
    for (const auto& [name, bytes] : files) out.push_back(name);
    return out;
}

TEST(ZipComponent, UnzipWritesEverythingOrStopsCleanly) {
    Scratch& s = Scratch::get();
    const std::map<std::string, std::string> normal = {{"top.txt", s.top}, {"sub/inner.txt", s.inner}};
    const struct {
        const char* archive;
        long opened;
        long unzipped;
        std::vector<std::string> errorHas;  // LastErrorText after Unzip ("" expected when empty)
        std::map<std::string, std::string> files;
        bool refused = false;  // unsafe names: not even the folder is made
    } cases[] = {
        {"normal.zip", 1, 2, {}, normal},
        {"comment.zip", 1, 2, {}, normal},
        {"stored.zip", 1, 1, {}, {{"data.bin", s.stored}}},
        {"emptyentry.zip", 1, 1, {}, {{"empty.txt", ""}}},
        {"dotdot.zip", 1, -1, {"../evil.txt", "nothing unpacked"}, {}, true},
        {"absolute.zip", 1, -1, {"/abs.txt"}, {}, true},
        {"backslash.zip", 1, -1, {"sub\\..\\..\\x.txt"}, {}, true},
        {"badstored.zip", 1, -1, {"data.bin", standins::ziperr::kCrc}, {}},
        {"baddeflate.zip", 1, -1, {"top.txt"}, {}},
        {"badsecond.zip", 1, -1, {"data.bin", standins::ziperr::kCrc}, {{"top.txt", s.top}}},
        {"encrypted.zip", 1, -1, {"top.txt", standins::ziperr::kEncrypted}, {}},
        {"truncated.zip", 0, -1, {"No zip archive is open"}, {}},
        {"empty.zip", 0, -1, {"No zip archive is open"}, {}},
        {"text.zip", 0, -1, {"No zip archive is open"}, {}},
        {"missing.zip", 0, -1, {"No zip archive is open"}, {}},
    };
    kpmtest::TestMachine m(true);
    for (const auto& e : fs::directory_iterator(s.root() / "zips"))
        m.writeFile("C:\\zips\\" + e.path().filename().string(), kpmtest::readHostFile(e.path()));
    auto host = m.open(kpmtest::at("2026-11-15T16:10:00")).standinHost();
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.archive);
        platform::Object zip(std::make_shared<standins::ZipComponent>(host));
        const std::string outWin = "C:\\out\\" + std::to_string(n++) + "\\unpacked";
        const fs::path out = m.hostPath(outWin);

        EXPECT_EQ(zip.call("OpenZip", std::string("C:\\zips\\") + c.archive).toLong(), c.opened);
        if (c.opened == 0) { EXPECT_NE(zip.get("lasterrortext").toString(), ""); }
        EXPECT_EQ(zip.call("UNZIP", outWin).toLong(), c.unzipped);
        const std::string error = zip.get("LastErrorText").toString();
        if (c.errorHas.empty()) { EXPECT_EQ(error, ""); }
        for (const auto& part : c.errorHas) EXPECT_NE(error.find(part), std::string::npos) << error;
        // Exactly the expected files: nothing from a refused archive, no
        // partial file of a damaged entry, no temporary left over.
        const auto written = filesBelow(out);
        EXPECT_EQ(names(written), names(c.files));
        EXPECT_TRUE(written == c.files) << "contents differ";
        if (c.refused) { EXPECT_FALSE(fs::exists(out)); }
        EXPECT_TRUE(filesBelow(m.root() / ".transfers").empty());

        zip.call("CloseZip");
        zip.call("CloseZip");
        EXPECT_EQ(zip.call("Unzip", outWin).toLong(), -1);
    }
}

// ---- MD5 ----------------------------------------------------------------------

std::string md5sum(const fs::path& file) {
    std::string out;
    if (FILE* p = popen(("md5sum '" + file.string() + "'").c_str(), "r")) {
        char buf[128];
        while (std::fgets(buf, sizeof buf, p)) out += buf;
        pclose(p);
    }
    return out.substr(0, 32);
}

TEST(Md5File, WholeAndBlockwiseAgreeWithMd5sum) {
    Scratch& s = Scratch::get();
    std::mt19937 gen(20261115);
    std::string random(1234567, '\0');
    for (char& c : random) c = static_cast<char>(gen() & 0xFF);
    const std::pair<const char*, std::string> files[] = {
        {"empty", ""}, {"one", "a"}, {"exact4096", std::string(4096, 'x')}, {"random", random}};
    for (const auto& [name, bytes] : files) {
        const fs::path p = s.root() / "md5" / name;
        writeFile(p, bytes);
        const std::string want = md5sum(p);
        ASSERT_EQ(want.size(), 32u);
        for (size_t block : {size_t{0}, size_t{1000}, size_t{4096}, size_t{65536}}) {
            std::string hex, error;
            EXPECT_TRUE(standins::md5File(p.string(), block, hex, error)) << error;
            EXPECT_EQ(hex, want) << name << " block " << block;
        }
    }
    std::string hex, error;
    EXPECT_FALSE(standins::md5File((s.root() / "md5" / "missing").string(), 0, hex, error));
    EXPECT_NE(error, "");
}

}  // namespace
