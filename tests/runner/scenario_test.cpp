// Runs every scenario folder of tests/scenarios and holds what its passes
// left to expected/. With KPM_REFRESH=1 it writes expected/ instead: the diff
// of that refresh is what a reviewer reads.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "runner/scenario.h"
#include "runner/text_diff.h"

namespace fs = std::filesystem;
namespace sc = kpmtest::scenario;

namespace {

fs::path scenariosRoot() {
    const char* env = std::getenv("KPM_SCENARIOS");
    return env && *env ? fs::path(env) : fs::path(KPM_SCENARIOS_DIR);
}

std::string readOrEmpty(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
    std::string name;
    for (char c : info.param) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

class Scenario : public testing::TestWithParam<std::string> {};

TEST_P(Scenario, Leaves) {
    const fs::path root = scenariosRoot();
    const fs::path expected = root / GetParam() / "expected";
    const sc::Outputs actual = sc::run(root, GetParam());
    const char* refresh = std::getenv("KPM_REFRESH");
    if (refresh && std::string(refresh) == "1") {
        fs::create_directories(expected);
        bool any = false;
        for (const char* name : sc::kOutputs) {
            const std::string& text = actual.at(name);
            if (text.empty()) fs::remove(expected / name);
            else std::ofstream(expected / name, std::ios::binary) << text;
            any = any || !text.empty();
        }
        // A pass that leaves nothing at all still has its (empty) expected/ in the repository.
        if (any) fs::remove(expected / ".keep");
        else std::ofstream(expected / ".keep");
        return;
    }
    ASSERT_TRUE(fs::is_directory(expected)) << GetParam() << " has no expected/ yet: scripts/refresh-scenarios.sh "
                                            << GetParam() << " writes it from what its passes leave";
    for (const char* name : sc::kOutputs) {
        const std::string want = readOrEmpty(expected / name);
        const std::string& got = actual.at(name);
        if (want == got) continue;
        std::string diff;
        for (const auto& line : kpmtest::lineDiff(kpmtest::splitLines(want), kpmtest::splitLines(got), 3))
            diff += line + "\n";
        ADD_FAILURE() << "expected/" << name << " differs from what the passes left (- expected, + left):\n" << diff;
    }
}

INSTANTIATE_TEST_SUITE_P(Whole, Scenario, testing::ValuesIn(sc::list(scenariosRoot())), testName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Scenario);

}  // namespace
