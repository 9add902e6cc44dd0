// Errors as the automation world reports them: a number, a source and a
// description. Platform calls throw ComError; each core procedure has one trap
// that catches it (or any std::exception) and carries on as its own rules say.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace platform {

class ComError : public std::runtime_error {
public:
    ComError(int32_t number, std::string source, std::string description)
        : std::runtime_error(description), number_(number), source_(std::move(source)),
          description_(std::move(description)) {}

    int32_t number() const { return number_; }
    const std::string& source() const { return source_; }
    const std::string& description() const { return description_; }

private:
    int32_t number_;
    std::string source_;
    std::string description_;
};

// Numbers the program's own logic tests for, or that bindings report for
// everyday failures. Values are the ones the automation runtime uses.
namespace err {
constexpr int32_t InvalidProcedureCall = 5;
constexpr int32_t Overflow = 6;
constexpr int32_t SubscriptOutOfRange = 9;
constexpr int32_t TypeMismatch = 13;
constexpr int32_t FileNotFound = 53;
constexpr int32_t FileAlreadyOpen = 55;
constexpr int32_t DeviceIOError = 57;
constexpr int32_t FileAlreadyExists = 58;
constexpr int32_t DiskFull = 61;
constexpr int32_t PermissionDenied = 70;
constexpr int32_t PathFileAccessError = 75;
constexpr int32_t PathNotFound = 76;
constexpr int32_t ObjectVariableNotSet = 91;
constexpr int32_t InvalidUseOfNull = 94;
constexpr int32_t ObjectRequired = 424;
constexpr int32_t CannotCreateObject = 429;
constexpr int32_t NoExpectedInterface = 430;
constexpr int32_t NoSuchMember = 438;
constexpr int32_t WrongArgumentCount = 450;
constexpr int32_t MonikerNotFound = static_cast<int32_t>(0x800401E4);  // MK_E_SYNTAX
constexpr int32_t ModuleNotFound = static_cast<int32_t>(0x8007007E);
constexpr int32_t NotImplemented = static_cast<int32_t>(0x80004001);
// The number the registry and service helpers raise for a failed low-level step.
constexpr int32_t LowLevelStep = 13579;
}  // namespace err

// Text the runtime gives for the numbers above; empty for unknown ones.
std::string describeError(int32_t number);

// Convenience for bindings: a ComError with the runtime's own description.
ComError makeError(int32_t number, std::string source = "KPMDwld");

// Thrown by System::endProcess. It is not a std::exception on purpose: no
// procedure's error trap may catch it, so it unwinds to the executable's entry.
struct ProcessEnd {
    int exitCode = 0;
};

}  // namespace platform
