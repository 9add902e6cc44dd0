// What the product list's signature costs: a list of 10,000 products (about
// 5 MB), its signature checked and its serial and dates read as a pass does,
// beside reading the same list into products (which every pass does anyway).
#include <benchmark/benchmark.h>

#include <string>

#include "list_signing.h"
#include "platform/host.h"
#include "platform/signatures.h"
#include "support/test_machine.h"
#include "tppatch/catalogue.h"
#include "tppatch/list_signature.h"

namespace {

using kpmtest::at;
using kpmtest::TestMachine;

std::string productList(int products) {
    std::string xml = "<?xml version=\"1.0\"?>\n<pdlist format=\"1\" serial=\"41\" issued=\"2026-11-14\" validUntil=\"2026-12-14\">\n";
    for (int v = 0; v < 50; ++v) {
        xml += "<vendor id=\"v" + std::to_string(v) + "\" name=\"Vendor " + std::to_string(v) + "\">\n";
        for (int p = v; p < products; p += 50) {
            const std::string n = std::to_string(p);
            xml += "  <product id=\"p" + n + "\" name=\"Product " + n + "\" arch=\"x64\"><uninstall><value name=\"DisplayName\" like=\"Product " +
                   n + " (*\"/><version value=\"DisplayVersion\"/></uninstall><update id=\"u" + n +
                   "\" version=\"5.5\"><installer name=\"p" + n +
                   ".exe\" size=\"1\" md5=\"c38b779e17d53180d8eda90d2e38dbbd\" "
                   "sha256=\"c28e19ec41be83144c914fd612dc2517e592320473ef5dcf46675af6f4ecf279\" url=\"http://x.example/p" +
                   n + ".exe\"/></update></product>\n";
        }
        xml += "</vendor>\n";
    }
    return xml + "</pdlist>\n";
}

struct World {
    TestMachine machine;
    std::string list, sig, path;
    std::vector<kpm::TrustedKey> keys;
    World() {
        list = productList(10000);
        const auto [priv, pub] = catalog::GenerateKeyPair();
        sig = catalog::SignatureFile(list, priv);
        std::vector<std::string> problems;
        machine.open(at("2026-11-15T16:10:00"));
        for (auto& der : kpm::PublicKeysFromPem(pub, problems))
            keys.push_back({platform::signatures().sha256(der), der, "bench"});
        path = std::string(kpmtest::kProgramFolder) + "\\Temp\\PDList.xml";
        machine.writeFile(path, list);
    }
};

World& world() {
    static World w;
    return w;
}

void BM_SignatureAndMetadata(benchmark::State& state) {
    World& w = world();
    for (auto _ : state) {
        const std::string bytes = platform::files().readAll(w.path);
        if (!kpm::CheckListSignature(bytes, w.sig, w.keys).empty()) state.SkipWithError("not verified");
        std::string why;
        if (!kpm::ReadListMetadata(w.path, why)) state.SkipWithError(why.c_str());
    }
    state.counters["bytes"] = static_cast<double>(w.list.size());
}
BENCHMARK(BM_SignatureAndMetadata)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_SignatureOnly(benchmark::State& state) {
    World& w = world();
    for (auto _ : state)
        if (!kpm::CheckListSignature(w.list, w.sig, w.keys).empty()) state.SkipWithError("not verified");
}
BENCHMARK(BM_SignatureOnly)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_ReadCatalogue(benchmark::State& state) {
    World& w = world();
    for (auto _ : state) benchmark::DoNotOptimize(kpm::ReadCatalogue(w.path).products.size());
}
BENCHMARK(BM_ReadCatalogue)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
