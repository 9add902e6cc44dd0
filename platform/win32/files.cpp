#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/win32/ansi.h"
#include "platform/win32/bindings.h"
#include "platform/win32/handles.h"

namespace platform::win32 {

namespace {

// The runtime's error number for a failed file call's system error.
// `missing` is what a missing file means to the statement at hand.
int32_t runtimeNumber(DWORD error, int32_t missing) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND: return missing;
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_INVALID_NAME: return err::PathNotFound;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT: return err::PermissionDenied;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return err::DiskFull;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return err::FileAlreadyExists;
    default: return err::PathFileAccessError;
    }
}

[[noreturn]] void fail(int32_t number) { throw makeError(number); }
[[noreturn]] void failWith(DWORD error, int32_t missing) { fail(runtimeNumber(error, missing)); }

DWORD attributes(std::string_view path) {
    std::string p(path);
    return GetFileAttributesA(p.c_str());
}

bool isSeparator(char c) { return c == '\\' || c == '/'; }

// Where the first folder below the root begins: after "C:\" or "\\server\share\".
size_t rootLength(const std::string& p) {
    if (p.size() >= 2 && isSeparator(p[0]) && isSeparator(p[1])) {
        size_t i = 2, parts = 0;
        while (i < p.size() && parts < 2) {
            if (isSeparator(p[i])) ++parts;
            ++i;
        }
        return i;
    }
    if (p.size() >= 2 && p[1] == ':') return p.size() >= 3 && isSeparator(p[2]) ? 3 : 2;
    return isSeparator(p.empty() ? 'x' : p[0]) ? 1 : 0;
}

void writeBytes(HANDLE h, std::string_view bytes) {
    while (!bytes.empty()) {
        DWORD chunk = bytes.size() > 0x10000000u ? 0x10000000u : static_cast<DWORD>(bytes.size());
        DWORD written = 0;
        if (!WriteFile(h, bytes.data(), chunk, &written, nullptr)) failWith(GetLastError(), err::DeviceIOError);
        bytes.remove_prefix(written);
    }
}

class Win32FileSystem final : public FileSystem {
public:
    bool fileExists(std::string_view path) override {
        DWORD a = attributes(path);
        return a != INVALID_FILE_ATTRIBUTES && !(a & FILE_ATTRIBUTE_DIRECTORY);
    }

    bool folderExists(std::string_view path) override {
        DWORD a = attributes(path);
        return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
    }

    bool findFirst(std::string_view path) override {
        std::string p(path);
        WIN32_FIND_DATAA data;
        UniqueFind f(FindFirstFileA(p.c_str(), &data));
        return static_cast<bool>(f);
    }

    // MakeSureDirectoryPathExists's contract without importing dbghelp.dll.
    bool makeSureDirectoryPathExists(std::string_view path) override {
        std::string p(path);
        for (size_t i = rootLength(p); i < p.size(); ++i) {
            if (!isSeparator(p[i]) || isSeparator(p[i - 1])) continue;
            std::string dir = p.substr(0, i);
            DWORD a = GetFileAttributesA(dir.c_str());
            if (a != INVALID_FILE_ATTRIBUTES) {
                if (a & FILE_ATTRIBUTE_DIRECTORY) continue;
                SetLastError(ERROR_ALREADY_EXISTS);  // a file stands where a folder should be
                return false;
            }
            if (!CreateDirectoryA(dir.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
                return false;
        }
        return true;
    }

    void createFolder(std::string_view path) override {
        std::string p(path);
        if (!CreateDirectoryA(p.c_str(), nullptr)) failWith(GetLastError(), err::PathNotFound);
    }

    uint64_t fileSize(std::string_view path) override {
        std::string p(path);
        WIN32_FILE_ATTRIBUTE_DATA data;
        if (!GetFileAttributesExA(p.c_str(), GetFileExInfoStandard, &data) ||
            (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            fail(err::FileNotFound);
        return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    }

    void clearReadOnly(std::string_view path) override { setReadOnly(path, false); }

    void setReadOnly(std::string_view path, bool readOnly) override {
        std::string p(path);
        DWORD a = GetFileAttributesA(p.c_str());
        if (a == INVALID_FILE_ATTRIBUTES) fail(err::FileNotFound);
        a = readOnly ? (a | FILE_ATTRIBUTE_READONLY) : (a & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
        if (!SetFileAttributesA(p.c_str(), a)) failWith(GetLastError(), err::FileNotFound);
    }

    void deleteFile(std::string_view path) override {
        std::string p(path);
        if (p.find_first_of("*?", p.find_last_of("\\/") == std::string::npos ? 0 : p.find_last_of("\\/")) !=
            std::string::npos) {
            deleteMatching(p);
            return;
        }
        if (DeleteFileA(p.c_str())) return;
        DWORD e = GetLastError();
        if (e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND) fail(err::FileNotFound);
        if (e == ERROR_ACCESS_DENIED) fail(err::PathFileAccessError);  // read-only or in use
        failWith(e, err::FileNotFound);
    }

    void deleteFolder(std::string_view path) override {
        std::string p(path);
        while (!p.empty() && isSeparator(p.back()) && p.size() > rootLength(p)) p.pop_back();
        if (!folderExists(p)) fail(err::PathNotFound);
        removeTree(toWide(p));
    }

    void moveFile(std::string_view from, std::string_view to) override {
        std::string f(from), t(to);
        if (MoveFileExA(f.c_str(), t.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED)) return;
        DWORD e = GetLastError();
        if (e == ERROR_ACCESS_DENIED) fail(err::PermissionDenied);  // the target is read-only or in use
        failWith(e, err::FileNotFound);
    }

    std::string sha256(std::string_view path) override {
        std::string p(path);
        UniqueFile f(CreateFileA(p.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        if (!f) failWith(GetLastError(), err::FileNotFound);
        HCRYPTPROV prov = 0;
        HCRYPTHASH hash = 0;
        // SHA-256 needs the AES provider (Windows XP SP3 and later).
        if (!CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT))
            fail(err::DeviceIOError);
        struct Release {
            HCRYPTPROV& prov;
            HCRYPTHASH& hash;
            ~Release() {
                if (hash) CryptDestroyHash(hash);
                CryptReleaseContext(prov, 0);
            }
        } release{prov, hash};
        if (!CryptCreateHash(prov, CALG_SHA_256, 0, 0, &hash)) fail(err::DeviceIOError);
        std::vector<BYTE> block(1 << 20);
        for (;;) {
            DWORD got = 0;
            if (!ReadFile(f.get(), block.data(), static_cast<DWORD>(block.size()), &got, nullptr))
                failWith(GetLastError(), err::DeviceIOError);
            if (got == 0) break;
            if (!CryptHashData(hash, block.data(), got, 0)) fail(err::DeviceIOError);
        }
        BYTE digest[32];
        DWORD size = sizeof digest;
        if (!CryptGetHashParam(hash, HP_HASHVAL, digest, &size, 0) || size != sizeof digest) fail(err::DeviceIOError);
        static const char kHex[] = "0123456789abcdef";
        std::string hex;
        for (BYTE b : digest) {
            hex += kHex[b >> 4];
            hex += kHex[b & 15];
        }
        return hex;
    }

    std::string readAll(std::string_view path) override {
        std::string p(path);
        UniqueFile f(CreateFileA(p.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!f) failWith(GetLastError(), err::FileNotFound);
        LARGE_INTEGER size;
        if (!GetFileSizeEx(f.get(), &size)) failWith(GetLastError(), err::FileNotFound);
        std::string out(static_cast<size_t>(size.QuadPart), '\0');
        size_t done = 0;
        while (done < out.size()) {
            DWORD got = 0, want = static_cast<DWORD>(out.size() - done > 0x10000000u ? 0x10000000u : out.size() - done);
            if (!ReadFile(f.get(), out.data() + done, want, &got, nullptr)) failWith(GetLastError(), err::DeviceIOError);
            if (got == 0) break;  // shrank while reading
            done += got;
        }
        out.resize(done);
        return out;
    }

    void writeAll(std::string_view path, std::string_view bytes) override {
        writeFile(path, bytes, GENERIC_WRITE, CREATE_ALWAYS);
    }

    void append(std::string_view path, std::string_view bytes) override {
        writeFile(path, bytes, FILE_APPEND_DATA, OPEN_ALWAYS);
    }

    // Kill with wildcards in the name: every matching file, 53 when none matches.
    void deleteMatching(const std::string& pattern) {
        const size_t slash = pattern.find_last_of("\\/");
        const std::string folder = slash == std::string::npos ? std::string() : pattern.substr(0, slash + 1);
        std::vector<std::string> victims;
        WIN32_FIND_DATAA data;
        {
            UniqueFind f(FindFirstFileA(pattern.c_str(), &data));
            if (!f) fail(err::FileNotFound);
            do {
                if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) victims.push_back(folder + data.cFileName);
            } while (FindNextFileA(f.get(), &data));
        }
        if (victims.empty()) fail(err::FileNotFound);
        for (const std::string& v : victims)
            if (!DeleteFileA(v.c_str())) failWith(GetLastError(), err::FileNotFound);
    }

    // Names come through the W calls and ansi.cpp: the A calls' conversion
    // uses best fit, and a look-alike name opens nothing (or another file).
    std::vector<std::string> listFiles(std::string_view folder) override {
        std::string p(folder);
        while (!p.empty() && isSeparator(p.back()) && p.size() > rootLength(p)) p.pop_back();
        if (!folderExists(p)) fail(err::PathNotFound);
        std::vector<std::string> names;
        WIN32_FIND_DATAW data;
        UniqueFind f(FindFirstFileW(toWide(p + "\\*").c_str(), &data));
        if (!f) return names;
        do {
            if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(toAnsi(data.cFileName));
        } while (FindNextFileW(f.get(), &data));
        std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
            return lstrcmpiA(a.c_str(), b.c_str()) < 0;
        });
        return names;
    }

    uint32_t getShortPathName(std::string_view longPath, std::string& buffer, uint32_t size) override {
        const std::wstring p = toWide(longPath);
        std::wstring wide(MAX_PATH, L'\0');
        DWORD n = GetShortPathNameW(p.c_str(), wide.data(), static_cast<DWORD>(wide.size()));
        if (n >= wide.size()) {
            wide.resize(n);
            n = GetShortPathNameW(p.c_str(), wide.data(), static_cast<DWORD>(wide.size()));
        }
        if (n == 0 || n >= wide.size()) return 0;
        const std::string shortPath = toAnsi(std::wstring_view(wide.data(), n));
        // GetShortPathNameA's answer: the length, or the size needed with the NUL.
        const auto length = static_cast<uint32_t>(shortPath.size());
        if (length >= size) return length + 1;
        if (buffer.size() < size) buffer.resize(size);
        std::copy(shortPath.begin(), shortPath.end(), buffer.begin());
        buffer[length] = '\0';
        return length;
    }

    bool diskFreeSpace(std::string_view root, uint64_t& freeToCaller, uint64_t& total,
                       uint64_t& totalFree) override {
        std::string r(root);
        ULARGE_INTEGER a, b, c;
        if (!GetDiskFreeSpaceExA(r.c_str(), &a, &b, &c)) return false;
        freeToCaller = a.QuadPart;
        total = b.QuadPart;
        totalFree = c.QuadPart;
        return true;
    }

private:
    static void writeFile(std::string_view path, std::string_view bytes, DWORD access, DWORD disposition) {
        std::string p(path);
        UniqueFile f(CreateFileA(p.c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
        // A missing file cannot be the reason here (the calls create it): the folder is.
        if (!f) failWith(GetLastError(), err::PathNotFound);
        writeBytes(f.get(), bytes);
    }

    // DeleteFolder with force: read-only entries go too. By wide names, so
    // that an entry whose name the code page cannot write goes as well.
    static void removeTree(const std::wstring& dir) {
        WIN32_FIND_DATAW data;
        UniqueFind find(FindFirstFileW((dir + L"\\*").c_str(), &data));
        if (find) {
            do {
                const std::wstring name = data.cFileName;
                if (name == L"." || name == L"..") continue;
                const std::wstring full = dir + L"\\" + name;
                if (data.dwFileAttributes & FILE_ATTRIBUTE_READONLY)
                    SetFileAttributesW(full.c_str(), data.dwFileAttributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
                if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                    removeTree(full);
                } else if (!DeleteFileW(full.c_str())) {
                    fail(err::PermissionDenied);
                }
            } while (FindNextFileW(find.get(), &data));
        }
        find.reset();
        if (!RemoveDirectoryW(dir.c_str())) fail(err::PermissionDenied);
    }
};

}  // namespace

std::unique_ptr<FileSystem> newFileSystem() { return std::make_unique<Win32FileSystem>(); }

}  // namespace platform::win32
