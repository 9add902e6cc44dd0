// What the activity log costs: a whole pass on a machine whose log is just
// under the size limit, and 10,000 entries against a bare open-append-close loop.
#include <benchmark/benchmark.h>

#include <fstream>

#include "driver/main.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "support/test_machine.h"

namespace {

using kpmtest::at;
using kpmtest::TestMachine;

void BM_PassWithNearlyFullLog(benchmark::State& state) {
    TestMachine m;
    const std::string filler(4'999'000, 'x');
    for (auto _ : state) {
        state.PauseTiming();
        m.writeFile(kpmtest::kLogPath, filler);
        state.ResumeTiming();
        benchmark::DoNotOptimize(m.runPass(at("2026-11-15T16:10:00")));
    }
}
BENCHMARK(BM_PassWithNearlyFullLog)->Unit(benchmark::kMillisecond);

constexpr int kEntries = 10'000;

void BM_WriteW3CLog10k(benchmark::State& state) {
    TestMachine m;
    m.open(at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    for (auto _ : state) {
        for (int i = 0; i < kEntries; ++i)
            kpm::WriteW3CLog("ModMain", "Main", "INFO", "Attempt", std::to_string(i), "", "");
    }
    m.close();
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_WriteW3CLog10k)->Unit(benchmark::kMillisecond);

// The floor: the same lines appended with open-append-close and nothing else.
void BM_BareAppend10k(benchmark::State& state) {
    TestMachine m;
    const auto path = m.hostPath(kpmtest::kLogPath);
    std::filesystem::create_directories(path.parent_path());
    for (auto _ : state) {
        for (int i = 0; i < kEntries; ++i) {
            std::ofstream out(path, std::ios::binary | std::ios::app);
            out << "11/15/2026 4:10:00 PM\tModMain\tMain\tINFO\tAttempt\t" << i << "\t\t\r\n";
        }
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_BareAppend10k)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
