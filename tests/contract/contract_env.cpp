#include "contract_env.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>

namespace contract {

void ContractTest::SetUp() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    env_ = makeEnv(std::string(info->test_suite_name()) + "_" + info->name());
    platform::setHost(&env_->host());
}

void ContractTest::TearDown() {
    platform::setHost(nullptr);
    env_.reset();
}

std::string ContractTest::at(std::string_view relative) const {
    return env_->folder() + "\\" + std::string(relative);
}

void ContractTest::reinstallHost() { platform::setHost(&env_->host()); }

std::string uniqueSuffix() {
    std::random_device rd;
    auto t = std::chrono::steady_clock::now().time_since_epoch().count();
    return std::to_string(rd()) + "_" + std::to_string(t);
}

SitesServer findSitesServer(const Env& env) {
    SitesServer s;
    const char* dir = std::getenv("KPM_SITES_DIR");
    if (!dir || !*dir) {
        s.why = "no sites server: KPM_SITES_DIR is not set";
        return s;
    }
    s.dir = dir;
    std::ifstream ports(env.testerPath(s.dir + "/ports.txt"));
    if (!ports) {
        s.why = "no sites server: no ports file in " + s.dir;
        return s;
    }
    for (std::string line; std::getline(ports, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const size_t eq = line.find('=');
        if (eq != std::string::npos) s.ports[line.substr(0, eq)] = std::atoi(line.c_str() + eq + 1);
    }
    return s;
}

}  // namespace contract
