#include "platform/errors.h"

namespace platform {

std::string describeError(int32_t number) {
    switch (number) {
    case err::InvalidProcedureCall: return "Invalid procedure call or argument";
    case err::Overflow: return "Overflow";
    case err::SubscriptOutOfRange: return "Subscript out of range";
    case err::TypeMismatch: return "Type mismatch";
    case err::FileNotFound: return "File not found";
    case err::FileAlreadyOpen: return "File already open";
    case err::DeviceIOError: return "Device I/O error";
    case err::FileAlreadyExists: return "File already exists";
    case err::DiskFull: return "Disk full";
    case err::PermissionDenied: return "Permission denied";
    case err::PathFileAccessError: return "Path/File access error";
    case err::PathNotFound: return "Path not found";
    case err::ObjectVariableNotSet: return "Object variable or With block variable not set";
    case err::InvalidUseOfNull: return "Invalid use of Null";
    case err::ObjectRequired: return "Object required";
    case err::CannotCreateObject: return "ActiveX component can't create object";
    case err::NoExpectedInterface:
        return "Class does not support Automation or does not support expected interface";
    case err::NoSuchMember: return "Object doesn't support this property or method";
    case err::WrongArgumentCount: return "Wrong number of arguments or invalid property assignment";
    case err::MonikerNotFound: return "Automation error";
    case err::ModuleNotFound: return "Automation error The specified module could not be found. ";
    case err::NotImplemented: return "Not implemented";
    default: return {};
    }
}

ComError makeError(int32_t number, std::string source) {
    return ComError(number, std::move(source), describeError(number));
}

}  // namespace platform
