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
    // Writes a reader tried and was refused: "FILE [SECTION] KEY", "delete FILE".
    const std::vector<std::string>& refusedWrites() const;

    platform::Registry& registry() override { return machine_.registry(); }
    platform::Profile& profile() override;
    platform::FileSystem& files() override;
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

    // Files as the machine has them; every change refused (ComError 70).
    class ReadOnlyFiles : public platform::FileSystem {
    public:
        ReadOnlyFiles(platform::FileSystem& real, std::vector<std::string>& refused) : real_(real), refused_(refused) {}
        bool fileExists(std::string_view p) override { return real_.fileExists(p); }
        bool folderExists(std::string_view p) override { return real_.folderExists(p); }
        bool findFirst(std::string_view p) override { return real_.findFirst(p); }
        bool makeSureDirectoryPathExists(std::string_view p) override { return refuse("make folders for", p), false; }
        void createFolder(std::string_view p) override { refuse("create", p); }
        uint64_t fileSize(std::string_view p) override { return real_.fileSize(p); }
        void clearReadOnly(std::string_view p) override { refuse("change", p); }
        void setReadOnly(std::string_view p, bool) override { refuse("change", p); }
        void deleteFile(std::string_view p) override { refuse("delete", p); }
        void deleteFolder(std::string_view p) override { refuse("delete", p); }
        void moveFile(std::string_view from, std::string_view) override { refuse("move", from); }
        std::string sha256(std::string_view p) override { return real_.sha256(p); }
        std::string readAll(std::string_view p) override { return real_.readAll(p); }
        void writeAll(std::string_view p, std::string_view) override { refuse("write", p); }
        void append(std::string_view p, std::string_view) override { refuse("write", p); }
        std::vector<std::string> listFiles(std::string_view folder) override { return real_.listFiles(folder); }
        uint32_t getShortPathName(std::string_view p, std::string& buffer, uint32_t size) override {
            return real_.getShortPathName(p, buffer, size);
        }
        bool diskFreeSpace(std::string_view root, uint64_t& a, uint64_t& b, uint64_t& c) override {
            return real_.diskFreeSpace(root, a, b, c);
        }

    private:
        void refuse(const char* what, std::string_view path);
        platform::FileSystem& real_;
        std::vector<std::string>& refused_;
    };

    platform::Host& machine_;
    StandingClock clock_;
    ReadOnlyProfile profile_;
    ReadOnlyFiles files_;
};

}  // namespace kpm::check
