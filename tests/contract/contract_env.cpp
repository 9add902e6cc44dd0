#include "contract_env.h"

#include <chrono>
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

}  // namespace contract
