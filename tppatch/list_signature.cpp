#include "tppatch/list_signature.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "platform/host.h"
#include "platform/signatures.h"
#include "tppatch/xml_guard.h"

namespace kpm {

namespace {

// The maker's list-signing key. Its private half never leaves the maker's
// signing host; a rotation adds the next key through "PDListKeys.pem" first.
constexpr const char* kMakerKey = R"(-----BEGIN PUBLIC KEY-----
MIIBojANBgkqhkiG9w0BAQEFAAOCAY8AMIIBigKCAYEAttQnhf0Gs8nDms3NjlHg
nLd7fOeYN4E9r8YD1XunP/x5Dl7juyxAQD5TNZzWuPw8aGKTse3ZDrAUxbJ4UHYh
hrxmiM97AQrPJf4bBlHvotejtYDb/U3FrsEETuLOKnGpdKqpeJ460kkOSYbHpn3p
zGv/cr6YrfxtzDVZxm8V6UPE6mbqe/ItM6sk3RsSEWYlzQ/d6bU9Kxh2ANPfHYMF
0ti+PACgbArqoLWEDxLmKnaqILmegYbCNZnzk4oLqIpzH1gNgPoUAZVqaORpBNOC
AaKqMvxFKpSecIOGbAKu+4Smg63pOtLCF3trMNm/6VLha9rkvF3GVTlx+amtA0QT
QSEoagkuF+x20CwdbpcWyC2YCMRYEC+Tmfvk+XnRlHoM1EzgOxOxWGJ0iPmWn8nW
LiNUeCfglUWkSe2sgnkl5nxb7PEAIlw5uRdzqZ5sIduLkvru0ENYYsPpllBnJZXV
oXdYSs1b5Wq+gKd+eip0PUDBbNDJSGhPyE61onsIQISjAgMBAAE=
-----END PUBLIC KEY-----
)";

bool isLowerHex(std::string_view s, size_t digits) {
    return s.size() == digits &&
           std::all_of(s.begin(), s.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// A decimal serial of 1 to 18 digits, above 0.
std::optional<uint64_t> readSerial(std::string_view s) {
    if (s.empty() || s.size() > 18 || !std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    uint64_t n = 0;
    for (char c : s) n = n * 10 + static_cast<uint64_t>(c - '0');
    if (n == 0) return std::nullopt;
    return n;
}

std::string programFile(const char* name) { return ProgramFolderShort() + "\\" + name; }

}  // namespace

std::optional<std::string> DecodeBase64(std::string_view text) {
    std::string out;
    uint32_t bits = 0;
    int count = 0, padding = 0;
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        int v;
        if (c >= 'A' && c <= 'Z') v = c - 'A';
        else if (c >= 'a' && c <= 'z') v = c - 'a' + 26;
        else if (c >= '0' && c <= '9') v = c - '0' + 52;
        else if (c == '+') v = 62;
        else if (c == '/') v = 63;
        else if (c == '=') v = -1;
        else return std::nullopt;
        if (v < 0) {
            ++padding;
            v = 0;
        } else if (padding) {
            return std::nullopt;  // nothing after the padding
        }
        bits = (bits << 6) | static_cast<uint32_t>(v);
        if (++count == 4) {
            if (padding > 2) return std::nullopt;  // "A===": no byte ends there
            out += static_cast<char>((bits >> 16) & 0xFF);
            if (padding < 2) out += static_cast<char>((bits >> 8) & 0xFF);
            if (padding < 1) out += static_cast<char>(bits & 0xFF);
            bits = 0;
            count = 0;
            if (padding) padding = 3;  // a later group is an error
        }
    }
    if (count != 0 || padding > 3) return std::nullopt;
    return out;
}

std::optional<ListSignature> ParseListSignature(std::string_view text, std::string& why) {
    std::string format, algorithm, key, signature;
    size_t number = 0;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        ++number;
        if (line.empty()) continue;
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            why = "line " + std::to_string(number) + " is not \"name: value\"";
            return std::nullopt;
        }
        const std::string_view name = trimmed(line.substr(0, colon)), value = trimmed(line.substr(colon + 1));
        std::string* field = name == "format" ? &format : name == "algorithm" ? &algorithm : name == "key" ? &key
                             : name == "signature"                                            ? &signature
                                                                                              : nullptr;
        if (!field) {
            why = "line " + std::to_string(number) + " names no field of a signature";
            return std::nullopt;
        }
        if (!field->empty()) {
            why = std::string(name) + " is given twice";
            return std::nullopt;
        }
        *field = std::string(value);
    }
    if (format != kSignatureFormat) {
        why = "format is not " + std::string(kSignatureFormat);
        return std::nullopt;
    }
    if (algorithm != kSignatureAlgorithm) {
        why = "algorithm \"" + algorithm.substr(0, 40) + "\" is not " + kSignatureAlgorithm;
        return std::nullopt;
    }
    if (!isLowerHex(key, 64)) {
        why = "key is not 64 lower-case hex digits";
        return std::nullopt;
    }
    auto bytes = DecodeBase64(signature);
    if (!bytes || bytes->empty()) {
        why = "signature is not Base64";
        return std::nullopt;
    }
    return ListSignature{key, *bytes};
}

std::vector<std::string> PublicKeysFromPem(std::string_view pem, std::vector<std::string>& problems) {
    static constexpr std::string_view kBegin = "-----BEGIN PUBLIC KEY-----", kEnd = "-----END PUBLIC KEY-----";
    std::vector<std::string> keys;
    size_t at = 0, block = 0;
    while ((at = pem.find(kBegin, at)) != std::string_view::npos) {
        ++block;
        const size_t body = at + kBegin.size(), end = pem.find(kEnd, body);
        if (end == std::string_view::npos) {
            problems.push_back("block " + std::to_string(block) + " has no END line");
            break;
        }
        auto der = DecodeBase64(pem.substr(body, end - body));
        if (der && !der->empty()) keys.push_back(*der);
        else problems.push_back("block " + std::to_string(block) + " is not Base64");
        at = end + kEnd.size();
    }
    return keys;
}

std::vector<TrustedKey> TrustedListKeys(std::vector<std::string>& problems) {
    std::vector<TrustedKey> keys;
    auto add = [&](std::string_view pem, const std::string& origin) {
        for (auto& der : PublicKeysFromPem(pem, problems))
            keys.push_back({platform::signatures().sha256(der), std::move(der), origin});
    };
    add(kMakerKey, "built in");
    const std::string file = programFile("PDListKeys.pem");
    resumeNext([&] {
        if (platform::files().fileExists(file)) add(platform::files().readAll(file), file);
    });
    return keys;
}

int32_t ListDateNumber(std::string_view s) {
    if (s.size() != 10 || s[4] != '-' || s[7] != '-') return 0;
    int32_t n = 0;
    for (size_t i : {0, 1, 2, 3, 5, 6, 8, 9}) {
        if (s[i] < '0' || s[i] > '9') return 0;
        n = n * 10 + (s[i] - '0');
    }
    const int month = n / 100 % 100, day = n % 100, year = n / 10000;
    if (year < 2000 || month < 1 || month > 12 || day < 1 || day > platform::daysInMonth(year, month)) return 0;
    return n;
}

std::optional<ListMetadata> ReadListMetadata(const std::string& path, std::string& why) {
    platform::Object doc = platform::automation().createObject("MSXML2.DOMDocument");
    doc.put("async", false);
    if (!doc.call("Load", path).toBool()) {
        why = "PDList.xml is not well-formed XML";
        return std::nullopt;
    }
    platform::Object root = doc.obj("documentElement");
    if (root.get("nodeName").toString() != "pdlist") {
        why = "the root of PDList.xml is not <pdlist>";
        return std::nullopt;
    }
    auto attr = [&](const char* name) {
        platform::Variant v = root.call("getAttribute", name);
        return v.isNull() || v.isEmpty() ? std::string() : v.toString();
    };
    ListMetadata m;
    const std::string serial = attr("serial");
    m.issued = attr("issued");
    m.validUntil = attr("validUntil");
    const auto n = readSerial(serial);
    if (!n) {
        why = "<pdlist> has no serial of 1 to 18 digits";
        return std::nullopt;
    }
    m.serial = *n;
    if (!ListDateNumber(m.issued) || !ListDateNumber(m.validUntil)) {
        why = "<pdlist> needs issued and validUntil dates (yyyy-mm-dd)";
        return std::nullopt;
    }
    m.auOptionsSha256 = attr("auOptionsSha256");
    std::transform(m.auOptionsSha256.begin(), m.auOptionsSha256.end(), m.auOptionsSha256.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (!m.auOptionsSha256.empty() && !isLowerHex(m.auOptionsSha256, 64)) {
        why = "<pdlist> auOptionsSha256 is not 64 hex digits";
        return std::nullopt;
    }
    if (ListDateNumber(m.validUntil) < ListDateNumber(m.issued)) {
        why = "<pdlist> is valid until " + m.validUntil + ", before it was issued on " + m.issued;
        return std::nullopt;
    }
    return m;
}

std::string CheckListSignature(std::string_view list, std::string_view signatureFile,
                               const std::vector<TrustedKey>& keys) {
    if (signatureFile.empty()) return "unreadable: PDList.xml.sig is empty";
    if (signatureFile.size() > kMaxSignatureFile)
        return "unreadable: PDList.xml.sig is " + std::to_string(signatureFile.size()) + " bytes, not a signature";
    std::string why;
    const auto sig = ParseListSignature(signatureFile, why);
    if (!sig) return "unreadable: PDList.xml.sig: " + why;
    const auto key = std::find_if(keys.begin(), keys.end(), [&](const TrustedKey& k) { return k.id == sig->keyId; });
    if (key == keys.end()) return "signed by a key that is not trusted: " + sig->keyId;
    switch (platform::signatures().verifyRsaSha256(key->der, list, sig->signature)) {
    case platform::SignatureCheck::Good: return {};
    case platform::SignatureCheck::Bad: return "signature does not verify: the list is not what key " + sig->keyId + " signed";
    case platform::SignatureCheck::KeyUnusable: break;
    }
    return "trusted key " + sig->keyId + " (" + key->origin + ") is not an RSA key of 2048 bits or more";
}

std::string CheckListFreshness(const ListMetadata& m, int32_t today, uint64_t highestSerial) {
    if (today > ListDateNumber(m.validUntil)) return "expired: valid until " + m.validUntil;
    if (m.serial < highestSerial)
        return "rolled back: serial " + std::to_string(m.serial) + " is lower than serial " +
               std::to_string(highestSerial) + " already accepted";
    return {};
}

std::string ListRecordPath() { return programFile("PDListRecord.ini"); }

uint64_t HighestAcceptedSerial() {
    return readSerial(Trim(fncReadINI("Accepted", "Serial", ListRecordPath()))).value_or(0);
}

std::string CheckProductList(const std::string& folder, std::string& accepted) {
    const std::string list = folder + "\\PDList.xml", sig = folder + "\\PDList.xml.sig";
    platform::FileSystem& files = platform::files();
    if (!files.fileExists(list)) return "unreadable: the archive has no PDList.xml";
    if (!files.fileExists(sig)) return "no signature: the archive has no PDList.xml.sig";
    // The size first: a huge file is refused before it is read.
    if (const uint64_t size = files.fileSize(sig); size > kMaxSignatureFile)
        return "unreadable: PDList.xml.sig is " + std::to_string(size) + " bytes, not a signature";
    if (const uint64_t size = files.fileSize(list); size > kMostProductListBytes)
        return "unreadable: PDList.xml is " + std::to_string(size) + " bytes, more than a list holds";
    std::vector<std::string> keyProblems;
    const std::vector<TrustedKey> keys = TrustedListKeys(keyProblems);
    std::string why = CheckListSignature(files.readAll(list), files.readAll(sig), keys);
    if (!why.empty() && !keyProblems.empty()) why += " (PDListKeys.pem: " + keyProblems.front() + ")";
    if (!why.empty()) return why;

    const auto m = ReadListMetadata(list, why);
    if (!m) return "unreadable: " + why;
    // AUOptions.xml is covered through the hash the signed list names.
    const std::string auOptions = folder + "\\AUOptions.xml";
    const bool hasAuOptions = files.fileExists(auOptions);
    if (m->auOptionsSha256.empty() && hasAuOptions)
        return "AUOptions.xml is not covered: the list names no auOptionsSha256";
    if (!m->auOptionsSha256.empty() && !hasAuOptions) return "the archive has no AUOptions.xml, which the list names";
    if (hasAuOptions && files.sha256(auOptions) != m->auOptionsSha256)
        return "AUOptions.xml is not the one the list names";
    const std::string record = ListRecordPath();
    const uint64_t highest = HighestAcceptedSerial();
    const platform::DateTime now = platform::clock().now();
    why = CheckListFreshness(*m, now.year * 10000 + now.month * 100 + now.day, highest);
    if (!why.empty()) return why;
    if (m->serial > highest) subWriteINI("Accepted", "Serial", std::to_string(m->serial), record);
    accepted = "serial " + std::to_string(m->serial) + ", issued " + m->issued + ", valid until " + m->validUntil;
    return {};
}

}  // namespace kpm
