// A whole pass on a big managed computer (kpmdwld-sim as a child process):
// wall time, peak memory, and two floors through the same file system: the
// pass's own log entries appended one open-append-close each, and every write
// the pass made (log entries, download list lines, status INI keys) made
// again the way the pass makes it. Then each
// dimension doubled, one at a time and all together.
// Each figure is the best of KPM_BENCH_RUNS runs (default 3) on fresh copies.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>

#include "big_machine.h"

namespace {

namespace fs = std::filesystem;
using kpmbench::Shape;

const char* const kNow = "2026-11-15T16:10:00";
double g_baseSeconds = 0;

int runs() {
    const char* r = std::getenv("KPM_BENCH_RUNS");
    return r && std::atoi(r) > 0 ? std::atoi(r) : 3;
}

void BM_BigPass(benchmark::State& state, Shape shape) {
    for (auto _ : state) {
        kpmtest::DownloadMachine m;
        kpmbench::buildBigMachine(m, shape);
        const fs::path run = m.root().string() + "-run";
        double best = 1e9, cpu = 1e9, floor = 1e9, writes = 1e9;
        long peakKB = 0;
        size_t entries = 0;
        for (int i = 0; i < runs(); ++i) {
            kpmbench::copyMachine(m.root(), run);
            const kpmbench::PassRun pass = kpmbench::runSimPass(KPM_SIM_EXE, run, kNow);
            if (pass.exitCode != 0) {
                state.SkipWithError("the pass failed");
                break;
            }
            best = std::min(best, pass.seconds);
            cpu = std::min(cpu, pass.cpuSeconds);
            peakKB = std::max(peakKB, pass.peakKB);
            const auto lines = kpmbench::logEntryLines(run);
            entries = lines.size();
            writes = std::min(writes, kpmbench::simWritesFloor(run, lines));
            floor = std::min(floor, kpmbench::simAppendFloor(run, lines));
        }
        if (!std::getenv("KPM_KEEP_MACHINES")) fs::remove_all(run);
        if (shape.label == "base") g_baseSeconds = best;
        state.SetIterationTime(best);
        state.counters["cpu_ms"] = cpu * 1000.0;
        state.counters["peak_MB"] = static_cast<double>(peakKB) / 1024.0;
        state.counters["entries"] = static_cast<double>(entries);
        state.counters["floor_ms"] = floor * 1000.0;
        state.counters["x_floor"] = best / floor;
        state.counters["writes_ms"] = writes * 1000.0;
        state.counters["x_writes"] = best / writes;
        if (g_baseSeconds > 0 && shape.label != "base") state.counters["x_base"] = best / g_baseSeconds;
    }
}

// Smaller shapes through KPM_BENCH_SCALE (a divisor), for a quick look.
Shape base() {
    Shape s;
    const char* d = std::getenv("KPM_BENCH_SCALE");
    const int k = d && std::atoi(d) > 1 ? std::atoi(d) : 1;
    s.updates /= k;
    s.blackList /= k;
    s.files /= k;
    s.lines /= k;
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    const Shape s = base();
    auto add = [](const std::string& name, const Shape& shape) {
        benchmark::RegisterBenchmark(name.c_str(), BM_BigPass, shape)
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    };
    add("BM_BigPass/base", s);
    for (const char* d : {"updates", "upcls", "products", "blacklist", "files", "lines", "all"})
        add(std::string("BM_BigPass/2x_") + d, kpmbench::doubled(s, d));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
