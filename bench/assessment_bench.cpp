// The assessment of installed products on a big computer: a product list of
// P products (2% of them found by a rule with no plain-text anchor, which
// reads every Uninstall key) against K Uninstall keys in the two views, read
// and assessed as a pass does it (one log entry per product). Then both
// doubled: the figure to watch is the time per doubling.
#include <benchmark/benchmark.h>

#include <string>

#include "log/w3c_log.h"
#include "platform/host.h"
#include "support/test_machine.h"
#include "tppatch/assessment.h"
#include "tppatch/catalogue.h"

namespace {

using kpmtest::at;
using kpmtest::TestMachine;

std::string uninstallKeys(int keys) {
    std::string reg;
    for (int k = 0; k < keys; ++k) {
        const bool wow = k % 2;  // half of them 32-bit installs
        reg += std::string("[HKEY_LOCAL_MACHINE\\SOFTWARE\\") + (wow ? "Wow6432Node\\" : "") +
               "Microsoft\\Windows\\CurrentVersion\\Uninstall\\App " + std::to_string(k) + "]\r\n" +
               "\"DisplayName\"=\"Product " + std::to_string(k) + " " + (wow ? "(x86)" : "(x64)") + "\"\r\n" +
               "\"DisplayVersion\"=\"" + std::to_string(k % 7) + "." + std::to_string(k % 13) + ".1\"\r\n" +
               "\"Publisher\"=\"Vendor " + std::to_string(k % 50) + "\"\r\n\r\n";
    }
    return reg;
}

std::string productList(int products) {
    std::string xml = "<pdlist format=\"1\">";
    for (int v = 0; v < 50; ++v) {
        xml += "<vendor id=\"v" + std::to_string(v) + "\" name=\"Vendor " + std::to_string(v) + "\">";
        for (int p = v; p < products; p += 50) {
            const std::string n = std::to_string(p);
            const bool wow = p % 2, scan = p % 50 == 7;
            const std::string rule = scan ? "like=\"*roduct " + n + " (*\"" : "like=\"Product " + n + " (*\"";
            xml += "<product id=\"p" + n + "\" name=\"Product " + n + "\" arch=\"" + (wow ? "x86" : "x64") + "\">" +
                   "<uninstall><value name=\"DisplayName\" " + rule + "/><value name=\"Publisher\" is=\"Vendor " +
                   std::to_string(v) + "\"/><version value=\"DisplayVersion\"/></uninstall>" +
                   "<update id=\"u" + n + "\" version=\"5.5\"><installer name=\"p" + n +
                   ".exe\" size=\"1\" md5=\"c38b779e17d53180d8eda90d2e38dbbd\" url=\"http://x.example/p" + n +
                   ".exe\"/></update></product>";
        }
        xml += "</vendor>";
    }
    return xml + "</pdlist>";
}

void BM_Assessment(benchmark::State& state) {
    const int products = static_cast<int>(state.range(0)), keys = static_cast<int>(state.range(1));
    TestMachine m;
    m.setRegistry(TestMachine::agentRegistry() + uninstallKeys(keys));
    const std::string list = std::string(kpmtest::kProgramFolder) + "\\Temp\\PDList.xml";
    m.writeFile(list, productList(products));
    m.makeFolder(std::string(kpmtest::kProgramFolder) + "\\ApplicationLog");
    size_t found = 0;
    for (auto _ : state) {
        state.PauseTiming();
        m.open(at("2026-11-15T16:10:00"));
        kpm::LogFilePath = kpmtest::kLogPath;
        state.ResumeTiming();
        const kpm::Catalogue c = kpm::ReadCatalogue(list);
        const auto findings = kpm::AssessProducts(c, std::vector<bool>(c.vendors.size(), true));
        found = 0;
        for (const auto& f : findings) found += f.state != kpm::ProductState::NotInstalled;
        state.PauseTiming();
        m.close();
        m.removeFile(kpmtest::kLogPath);
        state.ResumeTiming();
    }
    state.counters["products"] = products;
    state.counters["keys"] = keys;
    state.counters["found"] = static_cast<double>(found);  // installed: each product whose key is there
}
BENCHMARK(BM_Assessment)->Args({5000, 2000})->Args({10000, 4000})->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
