// The process and the computer: names, versions, the single-instance mutex,
// the last error, the clock's general date, and the maker's cipher library.
#include "contract_env.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "standins/cipher.h"

namespace {

using namespace platform;
using contract::ContractTest;

class System : public ContractTest {};

bool endsWithNoCase(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && iequals(s.substr(s.size() - tail.size()), tail);
}

TEST_F(System, ComputerNameFillsTheBufferAndReportsItsLength) {
    std::string buffer(256, '\0');
    uint32_t size = 256;
    ASSERT_TRUE(sys().getComputerName(buffer, size));
    ASSERT_GT(size, 0u);
    ASSERT_LT(size, 256u);
    EXPECT_EQ('\0', buffer[size]);
    EXPECT_EQ(std::string::npos, buffer.substr(0, size).find('\0'));

    std::string small(1, '\0');
    uint32_t smallSize = 1;
    EXPECT_FALSE(sys().getComputerName(small, smallSize));
    EXPECT_EQ(size + 1, smallSize) << "too small: the size needed, with its NUL";
}

// The executable's and the system folder's paths, an NT version, no start of a missing program.
TEST_F(System, PathsVersionAndPrograms) {
    std::string exe = sys().exePath();
    EXPECT_TRUE(endsWithNoCase(exe, ".exe")) << exe;
    EXPECT_EQ(":\\", exe.substr(1, 2)) << exe;
    std::string dir = sys().systemDirectory();
    EXPECT_TRUE(endsWithNoCase(dir, "\\system32")) << dir;
    EXPECT_EQ(":\\", dir.substr(1, 2)) << dir;
    EXPECT_FALSE(sys().startHidden("C:\\KPMContract\\no such program.exe /x"));

    OsVersion v;
    v.platformId = 0;
    v.major = 0;
    ASSERT_TRUE(sys().getVersion(v));
    EXPECT_EQ(2u, v.platformId);  // VER_PLATFORM_WIN32_NT
    EXPECT_GE(v.major, 5u);
    EXPECT_GE(v.productType, 1);
    EXPECT_LE(v.productType, 3);
    // Both the test machine and the Wine prefix are 64-bit Windows.
    EXPECT_TRUE(sys().is64BitWindows());
}

TEST_F(System, TheSingleInstanceMutexCanBeAcquiredOnce) {
    const std::string name = "KPMContract_" + contract::uniqueSuffix();
    EXPECT_TRUE(sys().acquireSingleInstance(name));
    EXPECT_FALSE(sys().acquireSingleInstance(name)) << "it exists while held";
    EXPECT_TRUE(sys().acquireSingleInstance(name + "_other"));
}

TEST_F(System, GeneralDateIsShortDateBlankLongTime) {
    // Both machines run in English (United States).
    struct Case {
        DateTime t;
        const char* text;
    };
    const Case cases[] = {
        {{2026, 11, 15, 16, 10, 36}, "11/15/2026 4:10:36 PM"},
        {{2026, 1, 5, 0, 0, 1}, "1/5/2026 12:00:01 AM"},
        {{2026, 12, 31, 12, 59, 59}, "12/31/2026 12:59:59 PM"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.text, platform::clock().generalDate(c.t));
}

TEST_F(System, NowIsAValidLocalTimeAndSleepPassesTime) {
    DateTime a = platform::clock().now();
    EXPECT_TRUE(isValid(a));
    platform::clock().sleep(1100);
    DateTime b = platform::clock().now();
    EXPECT_GE(toSeconds(b) - toSeconds(a), 1);
}

TEST_F(System, TheCipherLibraryMatchesTheStandInCipher) {
    const std::string plain = "Proxy password: s3cr3t! \xE9\r\n";
    std::string expected = plain;
    standins::cipherEncrypt(expected, expected.size());
    ASSERT_NE(plain, expected);

    std::string buffer = plain;
    maker().encryptData(buffer, static_cast<int32_t>(buffer.size()));
    EXPECT_EQ(expected, buffer);
    maker().decryptData(buffer, static_cast<int32_t>(buffer.size()));
    EXPECT_EQ(plain, buffer);

    std::string part = plain;  // only the first `length` bytes change
    maker().encryptData(part, 5);
    EXPECT_EQ(plain.substr(5), part.substr(5));
    EXPECT_EQ(expected.substr(0, 5), part.substr(0, 5));
}

TEST_F(System, AMissingCipherLibraryIsFileNotFound) {
    env().loseCipherLibrary();
    reinstallHost();
    std::string buffer = "text";
    try {
        maker().encryptData(buffer, 4);
        FAIL() << "no error";
    } catch (const ComError& e) {
        EXPECT_EQ(err::FileNotFound, e.number());
        EXPECT_EQ("File not found: KEncDec", e.description());
    }
    EXPECT_EQ("text", buffer);
}

}  // namespace
