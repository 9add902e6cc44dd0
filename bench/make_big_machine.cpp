// Writes the big managed computer of the pass benchmark to a folder, for a
// pass of the real executable under Wine:
//   kpm_big_machine DIR [SCALE]
// DIR/machine is the machine folder (registry.reg, machine.ini, drives/,
// update-catalog.xml), DIR/sites the folders its sites serve, and
// DIR/ports.txt the "site=port" lines its machine.ini was written with (the
// sites server that built it is gone: a script maps those ports to its own).
// SCALE divides the updates, black list, files and download lines, as
// KPM_BENCH_SCALE does for the benchmark (10: 300 updates).
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "big_machine.h"

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: kpm_big_machine DIR [SCALE]\n";
        return 2;
    }
    const fs::path out = argv[1];
    const int scale = argc == 3 ? std::atoi(argv[2]) : 1;
    if (scale < 1) {
        std::cerr << "kpm_big_machine: SCALE must be a whole number of at least 1\n";
        return 2;
    }
    kpmbench::Shape shape;
    shape.updates /= scale;
    shape.blackList /= scale;
    shape.files /= scale;
    shape.lines /= scale;

    kpmtest::DownloadMachine m;
    kpmbench::buildBigMachine(m, shape);
    fs::remove_all(out);
    kpmbench::copyMachine(m.root(), out / "machine");
    fs::copy(m.root() / "sites", out / "sites", fs::copy_options::recursive);
    fs::remove(out / "sites" / "requests.log");
    std::ofstream ports(out / "ports.txt", std::ios::binary);
    for (const char* site : {"gateway", "dc", "updates", "microsoft", "manage", "proxy"})
        ports << site << '=' << m.sites().port(site) << '\n';
    std::cout << shape.updates << " updates, " << shape.blackList << " black-list entries, " << shape.files
              << " files, " << shape.lines << " download lines: " << out.string() << '\n';
    return 0;
}
