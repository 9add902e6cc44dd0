// The machine as the checker sees it: the installed binding, with a clock that
// stands at the moment asked about and INI files that cannot be written. The
// checker runs the pass's own readers and evaluations, and some of them write
// or read the clock as a pass would; this keeps them to reading.
#pragma once

#include <string>
#include <vector>

#include "platform/host.h"

namespace kpm::check {

class CheckHost : public platform::Host {
public:
    CheckHost(platform::Host& machine, const platform::DateTime& now);

    // The clock's moment, for trying the schedule at other times.
    void setNow(const platform::DateTime& now);
    // INI writes a reader tried and was refused: "FILE [SECTION] KEY".
    const std::vector<std::string>& refusedWrites() const;

    platform::Registry& registry() override { return machine_.registry(); }
    platform::Profile& profile() override;
    platform::FileSystem& files() override { return machine_.files(); }
    platform::Clock& clock() override;
    platform::System& system() override { return machine_.system(); }
    platform::Automation& automation() override { return machine_.automation(); }
    platform::MakerLibraries& maker() override { return machine_.maker(); }
    platform::Internet& internet() override { return machine_.internet(); }
    platform::Services& services() override { return machine_.services(); }

private:
    class StandingClock : public platform::Clock {
    public:
        StandingClock(platform::Clock& real, const platform::DateTime& now) : real_(real), now_(now) {}
        platform::DateTime now() override { return now_; }
        void sleep(uint32_t) override {}
        std::string generalDate(const platform::DateTime& t) override { return real_.generalDate(t); }
        std::string dateText(const platform::DateTime& t) override { return real_.dateText(t); }
        void set(const platform::DateTime& t) { now_ = t; }

    private:
        platform::Clock& real_;
        platform::DateTime now_;
    };
    class ReadOnlyProfile : public platform::Profile {
    public:
        explicit ReadOnlyProfile(platform::Profile& real) : real_(real) {}
        uint32_t getString(std::string_view section, std::string_view key, std::string_view defaultValue,
                           std::string& buffer, uint32_t size, std::string_view file) override {
            return real_.getString(section, key, defaultValue, buffer, size, file);
        }
        bool writeString(std::string_view section, std::string_view key, std::string_view,
                         std::string_view file) override {
            refused.push_back(std::string(file) + " [" + std::string(section) + "] " + std::string(key));
            return false;
        }
        std::vector<std::string> refused;

    private:
        platform::Profile& real_;
    };

    platform::Host& machine_;
    StandingClock clock_;
    ReadOnlyProfile profile_;
};

}  // namespace kpm::check
