// What a procedure's error trap has in hand: the error's number, source and
// description, and the last system error code at the moment it was caught.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace kpm {

struct ErrInfo {
    int32_t number = 0;
    std::string source;
    std::string description;
    uint32_t lastDllError = 0;
};

// Reads the caught exception (ComError, or any std::exception as error 5).
ErrInfo errFrom(const std::exception& e);

// The usual handler: an ERROR entry with the place text, number, description
// and last system error code.
void logTrap(const std::string& module, const std::string& proc, const std::string& message,
             const ErrInfo& e);

// Appends " <proc> : <last system error> : <number>" to RunState.ErrorTrail.
void appendErrorTrail(const std::string& proc, const ErrInfo& e);

// Runs one statement of a routine that ignores its errors and resumes.
template <class F>
void resumeNext(F&& step) {
    try {
        step();
    } catch (const std::exception&) {
    }
}

}  // namespace kpm
