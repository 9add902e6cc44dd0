// KPMStandins.dll: an in-process COM server that gives the stand-ins'
// automation objects real ProgIDs on a Windows (Wine) machine that lacks the
// real components. Each class wraps a platform::Dispatch from the stand-ins
// in an IDispatch (platform/win32/com.h), so the same behaviour serves the
// simulated machine and COM clients.
//
// Classes:
//   KPMContract.Echo                 standins::Echo (the contract tests' object)
//   Microsoft.Update.ServiceManager  standins::UpdateServiceManager; it records
//                                    into %KPM_STANDINS_DIR%\update-services.ini,
//                                    C:\KPMStandins\update-services.ini when
//                                    the variable is not set
//   kDwnJob.JobDownload              standins::JobDownload  } over WinINet and the
//   ChilkatZip2.Chilkatzip2          standins::ZipComponent } files of this machine
//                                    (standins/com/win32_standin_host.h)
//
// Registered with "regsvr32 -s KPMStandins.dll" (per machine, in the view of
// the DLL's bitness).
#include <windows.h>
#include <objbase.h>
#include <olectl.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/win32/com.h"
#include "platform/win32/handles.h"
#include "standins/com/echo.h"
#include "standins/com/win32_standin_host.h"
#include "standins/job_download.h"
#include "standins/update_service_manager.h"
#include "standins/zip_component.h"

using platform::win32::ComPtr;
using platform::win32::UniqueHKey;

namespace {

HMODULE g_module = nullptr;
LONG g_locks = 0;

std::shared_ptr<platform::Dispatch> newUpdateServiceManager() {
    std::filesystem::path folder(standins::win32::standinsFolder());
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);  // the record's folder must exist
    return std::make_shared<standins::UpdateServiceManager>(folder / "update-services.ini");
}

struct ClassEntry {
    const char* progId;
    CLSID clsid;
    std::shared_ptr<platform::Dispatch> (*make)();
};

const ClassEntry kClasses[] = {
    {standins::kEchoProgId,
     {0xa0cc808c, 0xd468, 0x47b3, {0xbd, 0xe5, 0x83, 0xcb, 0x9c, 0x00, 0xb5, 0x34}},
     [] { return std::shared_ptr<platform::Dispatch>(std::make_shared<standins::Echo>()); }},
    {"Microsoft.Update.ServiceManager",
     {0xec61e934, 0x8645, 0x4582, {0x96, 0xce, 0x4a, 0xc9, 0xae, 0x03, 0x28, 0x19}},
     newUpdateServiceManager},
    {standins::kJobDownloadProgId,
     {0x5b7e2d41, 0x9c3a, 0x4f18, {0xa6, 0x2e, 0x71, 0xd4, 0x0b, 0x93, 0xc5, 0x6f}},
     [] {
         return std::shared_ptr<platform::Dispatch>(
             std::make_shared<standins::JobDownload>(standins::win32::newWin32StandinHost()));
     }},
    {standins::kZipProgId,
     {0xc2f84a17, 0x3e6b, 0x4d90, {0x8b, 0x15, 0x2a, 0x6c, 0xe9, 0x47, 0x0d, 0xb3}},
     [] {
         return std::shared_ptr<platform::Dispatch>(
             std::make_shared<standins::ZipComponent>(standins::win32::newWin32StandinHost()));
     }},
};

class ClassFactory final : public platform::win32::ComObject<IClassFactory> {
public:
    explicit ClassFactory(const ClassEntry& entry) : ComObject(IID_IClassFactory), entry_(entry) {}


    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        try {
            ComPtr<IDispatch> object = ComPtr<IDispatch>::adopt(
                platform::win32::newDispatchAdapter(entry_.make()));
            return object->QueryInterface(iid, out);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        if (lock) InterlockedIncrement(&g_locks);
        else InterlockedDecrement(&g_locks);
        return S_OK;
    }

private:
    const ClassEntry& entry_;
};

std::string guidText(const CLSID& id) {
    wchar_t text[64];
    StringFromGUID2(id, text, 64);
    std::string s;
    for (wchar_t* p = text; *p; ++p) s.push_back(static_cast<char>(*p));  // hex digits and braces
    return s;
}

LONG setString(HKEY parent, const std::string& path, const char* name, const std::string& value) {
    UniqueHKey key;
    LONG r = RegCreateKeyExA(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                             nullptr, key.put(), nullptr);
    if (r != ERROR_SUCCESS) return r;
    return RegSetValueExA(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>(value.size() + 1));
}

std::string modulePath() {
    char path[MAX_PATH * 2] = "";
    DWORD n = GetModuleFileNameA(g_module, path, sizeof path);
    return std::string(path, n);
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    for (const ClassEntry& c : kClasses) {
        if (!IsEqualCLSID(clsid, c.clsid)) continue;
        auto* factory = new (std::nothrow) ClassFactory(c);
        if (!factory) return E_OUTOFMEMORY;
        HRESULT hr = factory->QueryInterface(iid, out);
        factory->Release();
        return hr;
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return platform::win32::liveComObjects() == 0 && g_locks == 0 ? S_OK : S_FALSE;
}

HRESULT STDAPICALLTYPE DllRegisterServer() {
    const std::string path = modulePath();
    for (const ClassEntry& c : kClasses) {
        const std::string clsid = guidText(c.clsid);
        const std::string key = "CLSID\\" + clsid;
        LONG r = setString(HKEY_CLASSES_ROOT, key, nullptr, c.progId);
        if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, key + "\\InprocServer32", nullptr, path);
        if (r == ERROR_SUCCESS)
            r = setString(HKEY_CLASSES_ROOT, key + "\\InprocServer32", "ThreadingModel", "Apartment");
        if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, key + "\\ProgID", nullptr, c.progId);
        if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, c.progId, nullptr, c.progId);
        if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, std::string(c.progId) + "\\CLSID", nullptr, clsid);
        if (r != ERROR_SUCCESS) return SELFREG_E_CLASS;
    }
    return S_OK;
}

HRESULT STDAPICALLTYPE DllUnregisterServer() {
    for (const ClassEntry& c : kClasses) {
        RegDeleteTreeA(HKEY_CLASSES_ROOT, ("CLSID\\" + guidText(c.clsid)).c_str());
        RegDeleteTreeA(HKEY_CLASSES_ROOT, c.progId);
    }
    return S_OK;
}

}  // extern "C"
