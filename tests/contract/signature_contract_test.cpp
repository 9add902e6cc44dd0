// The product list's signature and freshness: one table of cases, the same
// answers from OpenSSL (simulated machine) and CNG (Windows), with the
// list's metadata read by each binding's XML reader.
#include <string>
#include <vector>

#include "contract_env.h"
#include "platform/signatures.h"
#include "tppatch/list_signature.h"

namespace {

#include "signature_rows.inc"

using contract::ContractTest;

class ListSignature : public ContractTest {
protected:
    std::vector<kpm::TrustedKey> trust(const char* pem) {
        std::vector<std::string> problems;
        std::vector<kpm::TrustedKey> keys;
        for (auto& der : kpm::PublicKeysFromPem(pem, problems))
            keys.push_back({platform::signatures().sha256(der), der, "test"});
        EXPECT_TRUE(problems.empty());
        return keys;
    }
    // The whole check of one list: signature, then metadata, then freshness.
    std::string check(const std::string& list, const std::string& sig, const std::vector<kpm::TrustedKey>& keys,
                      int32_t today, uint64_t highest) {
        std::string why = kpm::CheckListSignature(list, sig, keys);
        if (!why.empty()) return why;
        platform::files().writeAll(at("PDList.xml"), list);
        const auto m = kpm::ReadListMetadata(at("PDList.xml"), why);
        if (!m) return "unreadable: " + why;
        return kpm::CheckListFreshness(*m, today, highest);
    }
};

// One character of a text changed (another Base64 digit, another list byte).
std::string changed(std::string s, size_t at) {
    s[at] = s[at] == 'A' ? 'B' : 'A';
    return s;
}

TEST_F(ListSignature, OneTableOfCases) {
    const auto test = trust(kTestKey), shortKey = trust(kShortKey);
    const std::string sigA = kSigA, listA = kListA;
    const size_t sigBytes = sigA.find("signature: ") + 11;
    struct Row {
        const char* what;
        std::string list, sig;
        const std::vector<kpm::TrustedKey>* keys;
        int32_t today;
        uint64_t highest;
        std::string expected;  // the start of the answer; empty: accepted
    };
    const Row rows[] = {
        {"good", listA, sigA, &test, 20261115, 0, ""},
        {"one byte of the list changed", changed(listA, listA.find("41")), sigA, &test, 20261115, 0,
         "signature does not verify"},
        {"one byte of the signature changed", listA, changed(sigA, sigBytes + 100), &test, 20261115, 0,
         "signature does not verify"},
        {"the signature of another list", listA, kSigB, &test, 20261115, 0, "signature does not verify"},
        {"a signature cut short", listA, kSigACut, &test, 20261115, 0, "signature does not verify"},
        {"an empty signature file", listA, "", &test, 20261115, 0, "unreadable: PDList.xml.sig is empty"},
        {"a huge signature file", listA, std::string(20000, 'A'), &test, 20261115, 0,
         "unreadable: PDList.xml.sig is 20000 bytes"},
        {"a signature file of another format", listA, "signature: AAAA\n", &test, 20261115, 0,
         "unreadable: PDList.xml.sig: format"},
        {"a key not trusted", listA, kSigAOther, &test, 20261115, 0, "signed by a key that is not trusted"},
        {"a trusted key too short", listA, kSigAShort, &shortKey, 20261115, 0, "trusted key"},
        {"expired", listA, sigA, &test, 20261215, 0, "expired: valid until 2026-12-14"},
        {"the last valid day", listA, sigA, &test, 20261214, 0, ""},
        {"rolled back", listA, sigA, &test, 20261115, 42,
         "rolled back: serial 41 is lower than serial 42 already accepted"},
        {"the same serial again", listA, sigA, &test, 20261115, 41, ""},
        {"a newer serial", kListB, kSigB, &test, 20261115, 41, ""},
    };
    for (const Row& r : rows) {
        const std::string answer = check(r.list, r.sig, *r.keys, r.today, r.highest);
        if (r.expected.empty()) EXPECT_EQ("", answer) << r.what;
        else EXPECT_EQ(r.expected, answer.substr(0, r.expected.size())) << r.what << ": " << answer;
    }
}

TEST_F(ListSignature, DigestAndKeys) {
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", platform::signatures().sha256(""));
    EXPECT_EQ(platform::SignatureCheck::KeyUnusable,
              platform::signatures().verifyRsaSha256("not a key", kListA, "x"));
    // A key file's block that is not Base64 is named, not trusted.
    std::vector<std::string> problems;
    EXPECT_TRUE(kpm::PublicKeysFromPem("-----BEGIN PUBLIC KEY-----\n!!\n-----END PUBLIC KEY-----\n", problems).empty());
    EXPECT_EQ(std::vector<std::string>{"block 1 is not Base64"}, problems);
}

}  // namespace
