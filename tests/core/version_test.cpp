// The one comparison of product versions, as one table: each row is a pair
// and what the comparison says of it.
#include <gtest/gtest.h>

#include "tppatch/version.h"

namespace {

// '<': a is older than b; '=': the same version; '>': a is newer.
struct Row {
    const char *a, *b;
    char order;
};

const Row kRows[] = {
    {"1.10", "1.9", '>'},                          // numbers, not text
    {"1.0", "1.0.0", '='},                         // trailing zero parts do not count
    {"5.00.9096.1000", "5.0.9096.1000", '='},      // nor do leading zeros
    {"1.2.3.201912052356", "1.2.3.4", '>'},        // parts beyond 32 bits
    {"18446744073709551615", "18446744073709551614", '>'},  // the largest 64-bit part
    {"7.0.4-10", "7.0.4-9", '>'},                  // digit runs of a suffix as numbers
    {"7.0.4-1", "7.0.4", '>'},                     // a suffix that goes on is newer
    {"1.8.0_401", "1.8.0_391", '>'},
    {"8.0.4010.5", "8.0.401.50", '>'},
    {"v2.1", "2.1", '='},                          // a leading "v" is no part of the version
    {"V2.1.1", "2.1", '>'},
    {"v3", "3.0", '='},
    {" 24.004.20220 ", "24.4.20220", '='},         // blanks around do not count
    {"2.0", "1.99.99", '>'},
    {"1.0.1", "1.0", '>'},
    {"0", "0.0.0", '='},
    {"1.0a", "1.0", '>'},
    {"1.0b", "1.0A", '>'},                         // letters without case
    {"1.0-2", "1.0-beta", '>'},                    // a number is newer than letters
    {"1.0-rc1", "1.0-rc01", '='},
    {"3.0.18 (x64)", "3.0.18", '>'},
    {"1.2.", "1.2", '='},                          // a dot with no number after it only separates
    {"2.0 RC1", "2.0", '<'},                       // a pre-release word comes before the release
    {"2.0-beta.2", "2.0-beta.10", '<'},
    {"2.0-beta", "2.0-rc", '<'},                   // the words in order: alpha, beta, pre, preview, rc
    {"2.0 Preview 3", "1.9", '>'},                 // still after the release before it
    {"2.0.1-alpha", "2.0", '>'},
    {"128.5.2esr", "128.5.2", '>'},                // other suffixes keep their order
    {"2.47.1.windows.1", "2.47.1", '>'},
    {"7.0.4-1", "7.0.4-rc1", '>'},
    {"9, 5, 0, 0", "9.5", '='},                    // commas as separators, blanks after them
    {"9,5,1", "9.5.0.1", '>'},
    {"1.2,x", "1.2", '>'},                         // a comma before no number is a suffix
};

// Texts that are no version: never compared, the product is unknown.
const char* const kNotVersions[] = {"", "   ", "n/a", "v", "abc1.0", ".5", "-1", "18446744073709551616", "v.1"};

}  // namespace

TEST(Versions, OneTableOfPairs) {
    for (const Row& r : kRows) {
        auto a = kpm::ParseVersion(r.a), b = kpm::ParseVersion(r.b);
        ASSERT_TRUE(a && b) << r.a << " / " << r.b;
        const int c = kpm::CompareVersions(*a, *b), back = kpm::CompareVersions(*b, *a);
        EXPECT_EQ(c < 0 ? '<' : c > 0 ? '>' : '=', r.order) << r.a << " / " << r.b;
        EXPECT_EQ(back, -c) << r.b << " / " << r.a;  // the same answer read the other way round
    }
    for (const char* text : kNotVersions) EXPECT_FALSE(kpm::ParseVersion(text)) << "'" << text << "'";
}
