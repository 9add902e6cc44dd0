#include <windows.h>

#include <string>

#include "platform/errors.h"
#include "platform/maker.h"
#include "platform/win32/bindings.h"
#include "platform/win32/handles.h"
#include "platform/win32/kencdec.h"

namespace platform::win32 {

namespace {

std::string folderOf(const std::string& path) {
    size_t slash = path.find_last_of("\\/");
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string exeFolder() {
    std::string buf(MAX_PATH, '\0');
    for (;;) {
        DWORD n = GetModuleFileNameA(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
        if (n < buf.size()) return folderOf(buf.substr(0, n));
        buf.resize(buf.size() * 2);
    }
}

class Win32MakerLibraries final : public MakerLibraries {
public:
    explicit Win32MakerLibraries(std::string fileName) : fileName_(std::move(fileName)) {}

    int32_t encryptData(std::string& buffer, int32_t length) override {
        return call(kEncryptExport, buffer, length);
    }
    int32_t decryptData(std::string& buffer, int32_t length) override {
        return call(kDecryptExport, buffer, length);
    }

private:
    CipherEntry entry(const char* name) {
        // Loaded on first use and kept, as a declared DLL function is; a
        // failed load is tried again at the next call.
        if (!lib_) {
            lib_.reset(LoadLibraryA((exeFolder() + fileName_).c_str()));
            if (!lib_) lib_.reset(LoadLibraryA(fileName_.c_str()));
            if (!lib_) throw ComError(err::FileNotFound, "KPMDwld", "File not found: " + std::string(kCipherLibraryName));
        }
        FARPROC p = GetProcAddress(lib_.get(), name);
        if (!p)
            throw ComError(453, "KPMDwld",
                           "Can't find DLL entry point " + std::string(name) + " in " + kCipherLibraryName);
        // Through void(*)(), the generic function pointer type, to the declared one.
        return reinterpret_cast<CipherEntry>(reinterpret_cast<void (*)()>(p));
    }

    int32_t call(const char* name, std::string& buffer, int32_t length) {
        CipherEntry f = entry(name);
        if (length < 0) throw makeError(err::InvalidProcedureCall);
        // The library writes `length` bytes: never past the caller's text.
        long n = static_cast<long>(static_cast<size_t>(length) < buffer.size() ? length : buffer.size());
        buffer.push_back('\0');  // a C string for the library, as the runtime passes one
        long r = f(buffer.data(), n);
        buffer.pop_back();
        return static_cast<int32_t>(r);
    }

    std::string fileName_;
    UniqueModule lib_;
};

}  // namespace

std::unique_ptr<MakerLibraries> newMakerLibraries(const std::string& cipherLibrary) {
    return std::make_unique<Win32MakerLibraries>(cipherLibrary);
}

}  // namespace platform::win32
