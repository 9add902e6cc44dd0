// A registered test machine opened at a given moment with its activity log
// open, plus readers for "SchPatch.ini" and the entries a step added.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "log/w3c_log.h"
#include "support/test_machine.h"

namespace schedtest {

inline const std::string kSchPatch = std::string(kpmtest::kProgramFolder) + "\\SchPatch.ini";

class ScheduleFixture : public ::testing::Test {
protected:
    // Opens the machine with the pass state reset, the agent's install path
    // known and the activity log in its usual place (as after start-up).
    void open(const char* iso) {
        machine.makeFolder(std::string(kpmtest::kProgramFolder) + "\\ApplicationLog");
        machine.open(kpmtest::at(iso));
        kpm::agentSettings.InstallPath = kpmtest::kInstallPath;
        kpm::LogFilePath = kpmtest::kLogPath;
        folder = kpm::ProgramFolderShort();
        logStart = machine.logMessages().size();
    }
    void TearDown() override { machine.close(); }

    // Entries written since open(), as "module|proc|type|message|v1|v2|v3".
    std::vector<std::string> newLog() const {
        auto all = machine.logMessages();
        return {all.begin() + static_cast<long>(std::min(logStart, all.size())), all.end()};
    }

    // "SchPatch.ini" as it stands; empty when there is none.
    std::string schPatch() const { return machine.exists(kSchPatch) ? machine.read(kSchPatch) : ""; }

    kpmtest::TestMachine machine;
    std::string folder;  // the program folder, short form, as the entries name it
    size_t logStart = 0;
};

inline std::string info(const std::string& module, const std::string& proc, const std::string& message) {
    return module + "|" + proc + "|INFO|" + message + "|||";
}

}  // namespace schedtest
