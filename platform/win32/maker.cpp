#include <windows.h>

#include <string>

#include "platform/errors.h"
#include "platform/maker.h"
#include "platform/maker_exports.h"
#include "platform/win32/bindings.h"
#include "platform/win32/handles.h"
#include "platform/win32/kencdec.h"
#include "platform/win32/win32_host.h"

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

// One of the maker's DLLs, loaded on first use and kept, as a declared DLL
// function is; a failed load is tried again at the next call.
class MakerLibrary {
public:
    MakerLibrary(std::string fileName, std::string errorName)
        : fileName_(std::move(fileName)), errorName_(std::move(errorName)) {}

    template <class Fn>
    Fn entry(const char* name) {
        if (!lib_) {
            lib_.reset(LoadLibraryA((exeFolder() + fileName_).c_str()));
            if (!lib_) lib_.reset(LoadLibraryA(fileName_.c_str()));
            if (!lib_) throw ComError(err::FileNotFound, "KPMDwld", "File not found: " + errorName_);
        }
        FARPROC p = GetProcAddress(lib_.get(), name);
        if (!p)
            throw ComError(453, "KPMDwld", "Can't find DLL entry point " + std::string(name) + " in " + errorName_);
        // Through void(*)(), the generic function pointer type, to the declared one.
        return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(p));
    }

private:
    std::string fileName_, errorName_;
    UniqueModule lib_;
};

class Win32MakerLibraries final : public MakerLibraries {
public:
    explicit Win32MakerLibraries(const HostOptions& options)
        : cipher_(options.cipherLibrary, kCipherLibraryName),
          download_(options.downloadLibrary, maker_exports::kDownloadLibrary),
          checksum_(options.checksumLibrary, maker_exports::kChecksumLibrary) {}

    int32_t encryptData(std::string& buffer, int32_t length) override {
        return cipherCall(kEncryptExport, buffer, length);
    }
    int32_t decryptData(std::string& buffer, int32_t length) override {
        return cipherCall(kDecryptExport, buffer, length);
    }

    int32_t asyncDownloadFile(const std::string& url, const std::string& destination) override {
        auto f = download_.entry<maker_exports::AsyncDownloadFileFn>("AsyncDownloadFile");
        return static_cast<int32_t>(f(url.c_str(), destination.c_str()));
    }

    int32_t getDownloadFinalStatus(int32_t job, int64_t& bytesReceived) override {
        auto f = download_.entry<maker_exports::GetDownloadFinalStatusFn>("GetDownloadFinalStatus");
        long long bytes = 0;
        long status = f(job, &bytes);
        bytesReceived = bytes;
        return static_cast<int32_t>(status);
    }

    bool kGetMD5(const std::string& path, std::string& md5) override {
        auto f = checksum_.entry<maker_exports::KGetMD5Fn>("KGetMD5");
        char text[33] = "";
        long ok = f(path.c_str(), text);
        text[32] = '\0';
        md5 = ok ? text : "";
        return ok != 0;
    }

    bool kGetMD5WBlock(const std::string& path, std::string& md5) override {
        auto f = checksum_.entry<maker_exports::KGetMD5WBlockFn>("KGetMD5WBlock");
        char text[33] = "";
        long ok = f(path.c_str(), text, maker_exports::kDefaultMd5Block);
        text[32] = '\0';
        md5 = ok ? text : "";
        return ok != 0;
    }

private:
    int32_t cipherCall(const char* name, std::string& buffer, int32_t length) {
        CipherEntry f = cipher_.entry<CipherEntry>(name);
        if (length < 0) throw makeError(err::InvalidProcedureCall);
        // The library writes `length` bytes: never past the caller's text.
        long n = static_cast<long>(static_cast<size_t>(length) < buffer.size() ? length : buffer.size());
        buffer.push_back('\0');  // a C string for the library, as the runtime passes one
        long r = f(buffer.data(), n);
        buffer.pop_back();
        return static_cast<int32_t>(r);
    }

    MakerLibrary cipher_, download_, checksum_;
};

}  // namespace

std::unique_ptr<MakerLibraries> newMakerLibraries(const HostOptions& options) {
    return std::make_unique<Win32MakerLibraries>(options);
}

}  // namespace platform::win32
