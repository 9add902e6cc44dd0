// The contract tests' environment under Wine (or Windows): the Windows
// binding, with registry keys and a folder of the test's own that are
// removed before and after the test.
#include <windows.h>
#include <wincrypt.h>

#include <optional>

#include "contract_env.h"
#include "platform/win32/handles.h"
#include "platform/win32/win32_host.h"

namespace contract {

namespace {

// Deletes KEY\PARENT\NAME in one view, whatever the process's own bitness.
void deleteTreeIn(HKEY root, const char* parent, const std::string& name, REGSAM view) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(root, parent, 0, KEY_ALL_ACCESS | view, &key) != ERROR_SUCCESS) return;
    RegDeleteTreeA(key, name.c_str());
    RegCloseKey(key);
}

// The test's keys in both views: HKLM\SOFTWARE's two physical keys (HKCU\Software
// is one key in both), and its class keys (contract::classKeyName).
void removeKeys(const std::string& path) {
    const std::string rest = path.substr(path.find('\\') + 1);  // "KPMContract\<test>"
    const std::string name = contract::classKeyName(path);
    RegDeleteTreeA(HKEY_CURRENT_USER, path.c_str());
    for (REGSAM view : {KEY_WOW64_32KEY, KEY_WOW64_64KEY}) {
        deleteTreeIn(HKEY_LOCAL_MACHINE, "SOFTWARE", rest, view);
        deleteTreeIn(HKEY_CLASSES_ROOT, "CLSID", name, view);
        deleteTreeIn(HKEY_LOCAL_MACHINE, "SOFTWARE\\Classes", name, view);
    }
}

void removeTree(const std::string& dir) {
    WIN32_FIND_DATAA data;
    platform::win32::UniqueFind find(FindFirstFileA((dir + "\\*").c_str(), &data));
    if (find) {
        do {
            std::string name = data.cFileName;
            if (name == "." || name == "..") continue;
            std::string full = dir + "\\" + name;
            SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) removeTree(full);
            else DeleteFileA(full.c_str());
        } while (FindNextFileA(find.get(), &data));
    }
    find.reset();
    RemoveDirectoryA(dir.c_str());
}

constexpr const char* kStandinsVariable = "KPM_STANDINS_DIR";
constexpr const char* kNoSuchLibrary = "KPMContractNoSuchLibrary.dll";

std::optional<std::string> environmentVariable(const char* name) {
    char value[MAX_PATH * 2];
    DWORD n = GetEnvironmentVariableA(name, value, sizeof value);
    if (n == 0 || n >= sizeof value) return std::nullopt;
    return std::string(value, n);
}

class WineEnv final : public Env {
public:
    explicit WineEnv(const std::string& test)
        : host_(std::make_unique<platform::win32::Win32Host>()),
          savedStandinsDir_(environmentVariable(kStandinsVariable)) {
        folder_ = "C:\\KPMContract\\" + test;
        keyPath_ = "Software\\KPMContract\\" + test;
        clean();
        CreateDirectoryA("C:\\KPMContract", nullptr);
        CreateDirectoryA(folder_.c_str(), nullptr);
    }
    ~WineEnv() override {
        host_.reset();
        // The stand-ins in this process read their network.ini from here: back to what it was.
        SetEnvironmentVariableA(kStandinsVariable, savedStandinsDir_ ? savedStandinsDir_->c_str() : nullptr);
        if (!GetEnvironmentVariableA("KPM_KEEP_MACHINES", nullptr, 0)) clean();
    }

    platform::Host& host() override { return *host_; }
    bool underWine() const override { return true; }

    bool readOnlyStopsWriting() override {
        using platform::win32::UniqueFile;
        const std::string probe = folder_ + "\\readonly.probe";
        UniqueFile(CreateFileA(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_READONLY,
                               nullptr));
        const bool stops = !UniqueFile(CreateFileA(probe.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                                   FILE_ATTRIBUTE_NORMAL, nullptr));
        SetFileAttributesA(probe.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(probe.c_str());
        return stops;
    }
    void loseCipherLibrary() override {
        options_.cipherLibrary = kNoSuchLibrary;
        host_ = std::make_unique<platform::win32::Win32Host>(options_);
    }
    void loseMakerLibrary(const std::string& fileName) override {
        if (lstrcmpiA(fileName.c_str(), "KDowFile.dll") == 0) options_.downloadLibrary = kNoSuchLibrary;
        if (lstrcmpiA(fileName.c_str(), "KGnMD5.dll") == 0) options_.checksumLibrary = kNoSuchLibrary;
        host_ = std::make_unique<platform::win32::Win32Host>(options_);
    }
    // The stand-ins (KDowFile.dll, KPMStandins.dll's objects) run in this
    // process and read %KPM_STANDINS_DIR%\network.ini for each transfer.
    void setNetwork(const std::string& iniSections) override {
        const std::string dir = folder_ + "\\standins";
        CreateDirectoryA(dir.c_str(), nullptr);
        host_->files().writeAll(dir + "\\network.ini", iniSections);
        SetEnvironmentVariableA(kStandinsVariable, dir.c_str());
        host_ = std::make_unique<platform::win32::Win32Host>(options_);
    }
    void trustRoot(const std::string& pemFile) override {
        const std::string pem = host_->files().readAll(pemFile);
        DWORD size = 0;
        ASSERT_TRUE(CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr))
            << pemFile;
        std::string der(size, '\0');
        ASSERT_TRUE(CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER,
                                         reinterpret_cast<BYTE*>(der.data()), &size, nullptr, nullptr));
        HCERTSTORE root = CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0,
                                        CERT_SYSTEM_STORE_LOCAL_MACHINE, "ROOT");
        ASSERT_NE(nullptr, root) << GetLastError();
        const BOOL added = CertAddEncodedCertificateToStore(root, X509_ASN_ENCODING,
                                                            reinterpret_cast<const BYTE*>(der.data()), size,
                                                            CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
        const DWORD error = GetLastError();
        CertCloseStore(root, 0);
        ASSERT_TRUE(added) << error;
    }
    std::string standinRecord(const std::string& fileName) override {
        const std::string path = folder_ + "\\standins\\" + fileName;
        return host_->files().fileExists(path) ? host_->files().readAll(path) : std::string();
    }
    // Starts or stops the service for real and waits until it is there (a
    // first start in a new prefix can take Wine half a minute, or time out).
    void setServiceState(const std::string& name, bool running) override {
        SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        SC_HANDLE service = manager ? OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS) : nullptr;
        const DWORD wanted = running ? SERVICE_RUNNING : SERVICE_STOPPED;
        for (DWORD waited = 0; service && waited < 90000; waited += 200) {
            SERVICE_STATUS status{};
            if (!QueryServiceStatus(service, &status) || status.dwCurrentState == wanted) break;
            if (running && status.dwCurrentState == SERVICE_STOPPED) StartServiceA(service, 0, nullptr);
            if (!running && (status.dwCurrentState == SERVICE_RUNNING || status.dwCurrentState == SERVICE_PAUSED))
                ControlService(service, SERVICE_CONTROL_STOP, &status);
            Sleep(200);
        }
        if (service) CloseServiceHandle(service);
        if (manager) CloseServiceHandle(manager);
    }
    // Wine shows the Unix file system as drive Z:.
    std::string testerPath(const std::string& path) const override {
        if (path.empty() || path[0] != '/') return path;
        std::string p = "Z:" + path;
        for (char& c : p)
            if (c == '/') c = '\\';
        return p;
    }

private:
    void clean() {
        removeKeys(keyPath_);
        removeTree(folder_);
    }

    platform::win32::HostOptions options_;
    std::unique_ptr<platform::win32::Win32Host> host_;
    std::optional<std::string> savedStandinsDir_;
};

}  // namespace

std::unique_ptr<Env> makeEnv(const std::string& testName) { return std::make_unique<WineEnv>(testName); }

}  // namespace contract
