// What a download costs: a 200 MB file over loopback from the project's sites
// server, through each download stand-in of the simulated machine, against
// curl writing the same file in the same run (the floor).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "download_machine.h"
#include "platform/host.h"
#include "sites/sites_server.h"

namespace {

constexpr uint64_t kSize = 200ull << 20;
const std::string kDest = std::string(kpmtest::kComponents) + "big.bin";
const std::string kUrl = "http://gateway.corp.lan:8080/pm/big.bin";

// One machine for all of them: the file is written once.
kpmtest::DownloadMachine& machine() {
    static kpmtest::DownloadMachine* m = [] {
        auto* dm = new kpmtest::DownloadMachine(false);
        dm->writeFile(std::string(kpmtest::kPatchFolder) + "KDowFile.dll", "MZ");
        dm->makeFolder(kpmtest::kComponents);
        auto file = dm->root() / "sites" / "gateway" / "pm" / "big.bin";
        std::filesystem::create_directories(file.parent_path());
        std::ofstream out(file, std::ios::binary);
        std::string block(1 << 20, 'b');
        for (uint64_t i = 0; i < kSize / block.size(); ++i) out << block;
        dm->writeMachineIni("[Drives]\r\nC=2000000000000,1000000000000\r\n");
        return dm;
    }();
    return *m;
}

template <class F>
void run(benchmark::State& state, F&& fetch) {
    auto& m = machine();
    m.open(kpmtest::at("2026-11-15T16:10:00"));
    for (auto _ : state) {
        if (!fetch()) state.SkipWithError("download failed");
        state.PauseTiming();
        platform::files().deleteFile(kDest);
        state.ResumeTiming();
    }
    m.close();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_DownloadObject(benchmark::State& state) {
    run(state, [] {
        platform::Object job = platform::automation().createObject("kDwnJob.JobDownload");
        platform::Variant u(kUrl), e1(""), e2(""), d(kDest), s(""), r(""), f("");
        return job.call("JobDownload", platform::ByRef{&u}, platform::ByRef{&e1}, platform::ByRef{&e2},
                        platform::ByRef{&d}, platform::ByRef{&s}, platform::ByRef{&r}, platform::ByRef{&f})
            .toBool();
    });
}
BENCHMARK(BM_DownloadObject)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_DownloadLibrary(benchmark::State& state) {
    run(state, [] {
        int32_t job = platform::maker().asyncDownloadFile(kUrl, kDest);
        int64_t bytes = 0;
        int32_t status = platform::kdowfile::Running;
        while (status == platform::kdowfile::Running) status = platform::maker().getDownloadFinalStatus(job, bytes);
        return status == platform::kdowfile::Completed;
    });
}
BENCHMARK(BM_DownloadLibrary)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_UrlDownload(benchmark::State& state) {
    run(state, [] { return platform::internet().urlDownloadToFile(kUrl, kDest) == 0; });
}
BENCHMARK(BM_UrlDownload)->Unit(benchmark::kMillisecond)->Iterations(3);

// The floor: curl itself, writing to a file on the same disk.
void BM_CurlFloor(benchmark::State& state) {
    auto& m = machine();
    const std::string out = (m.root() / "curl.bin").string();
    const std::string cmd = "curl -s -o '" + out + "' http://127.0.0.1:" +
                            std::to_string(m.sites().port("gateway")) + "/pm/big.bin";
    for (auto _ : state) {
        if (std::system(cmd.c_str()) != 0) state.SkipWithError("curl failed");
        state.PauseTiming();
        std::filesystem::remove(out);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}
BENCHMARK(BM_CurlFloor)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
