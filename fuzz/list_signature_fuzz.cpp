// The product list's signature file and metadata: whatever "PDList.xml.sig",
// a key file or the list's root element hold, they are read or refused with a
// reason, never a crash; a refusal is never mistaken for an accepted list.
#include <cstdlib>

#include "fuzz_machine.h"
#include "tppatch/list_signature.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input = kpmfuzz::text(data, size);
    // Before the first NUL: the signature file; after it: the list.
    const size_t cut = input.find('\0');
    const std::string sig = input.substr(0, cut), list = cut == std::string::npos ? "" : input.substr(cut + 1);

    std::string why;
    if (auto s = kpm::ParseListSignature(sig, why)) {
        if (s->keyId.size() != 64 || s->signature.empty()) std::abort();
    } else if (why.empty()) {
        std::abort();
    }
    kpm::DecodeBase64(sig);
    std::vector<std::string> problems;
    const auto keys = kpm::PublicKeysFromPem(input, problems);
    std::vector<kpm::TrustedKey> trusted;
    for (const auto& der : keys) trusted.push_back({std::string(64, 'a'), der, "fuzz"});
    // No key of the input is the one the signature names unless it says so: never accepted.
    if (kpm::CheckListSignature(list, sig, trusted).empty() && !sig.empty() && trusted.empty()) std::abort();

    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    const std::string path = std::string(kpmtest::kProgramFolder) + "\\Temp\\PDList.xml";
    m.writeFile(path, list);
    kpmfuzz::step([&] {
        try {
            if (auto meta = kpm::ReadListMetadata(path, why)) {
                if (!kpm::ListDateNumber(meta->validUntil) || meta->serial == 0) std::abort();
                kpm::CheckListFreshness(*meta, 20261115, 41);
            }
        } catch (const platform::ComError&) {
        }
    });
    return 0;
}
