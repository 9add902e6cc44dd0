// KPMStandins.dll: an in-process COM server that gives the stand-ins'
// automation objects real ProgIDs on a Windows (Wine) machine that lacks the
// real components. Each class wraps a platform::Dispatch from the stand-ins
// in an IDispatch (platform/win32/com.h), so the same behaviour serves the
// simulated machine and COM clients.
//
// Classes (identifiers in standins/served_classes.h):
//   KPMContract.Echo                 standins::Echo (the contract tests' object)
//   Microsoft.Update.Session,        the update agent stand-in (standins/update_agent.h);
//   .ServiceManager, .UpdateColl,    its files in %KPM_STANDINS_DIR% (C:\KPMStandins
//   .AgentInfo, and the WebProxy     when the variable is not set), its settings in
//   class by its CLSID               that folder's network.ini [WindowsUpdate]
//   kWbPost.WebPost                  standins::WebPost       } over WinINet and the
//   kDwnJob.JobDownload              standins::JobDownload   } files of this machine
//   ChilkatZip2.Chilkatzip2          standins::ZipComponent  }
//                                    (standins/com/win32_standin_host.h)
//   {88565CBB-406B-431F-BE79-66F8E3F67490}  the string-encryption class, by CLSID only,
//                                    with its dual interface (standins/com/string_cipher_com.h);
//                                    registered by KPMStandins.dll under its own name only
//
// Registered with "regsvr32 -s KPMStandins.dll" (per machine, in the view of
// the DLL's bitness). A copy named as one of the maker's DLLs (kWbPost.dll,
// kDwnJob.dll, Chilkatzip2.dll) stands for that DLL: it registers, serves and
// unregisters only the classes that DLL has. To add a class: its row in
// standins/served_classes.h, then one line in kClasses below.
#include <windows.h>
#include <objbase.h>
#include <olectl.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/win32/com.h"
#include "platform/win32/handles.h"
#include "standins/com/echo.h"
#include "standins/com/string_cipher_com.h"
#include "standins/com/win32_standin_host.h"
#include "standins/com/win32_update_agent.h"
#include "standins/job_download.h"
#include "standins/served_classes.h"
#include "standins/update_agent.h"
#include "standins/web_post.h"
#include "standins/zip_component.h"

using platform::win32::ComPtr;
using platform::win32::UniqueHKey;

namespace {

HMODULE g_module = nullptr;
LONG g_locks = 0;

std::shared_ptr<platform::Dispatch> newUpdateServiceManager() {
    return standins::newUpdateServiceManager(standins::win32::updateAgentPlace());
}

using Make = std::shared_ptr<platform::Dispatch> (*)();

struct ClassEntry {
    const char* progId;  // empty: a class known by its identifier only,
    Make make;
    const char* clsid = nullptr;  // which is given here
};

template <class T>
std::shared_ptr<platform::Dispatch> overWin32Host() {
    return std::make_shared<T>(standins::win32::newWin32StandinHost());
}

const ClassEntry kClasses[] = {
    {standins::kEchoProgId, [] { return std::shared_ptr<platform::Dispatch>(std::make_shared<standins::Echo>()); }},
    {"Microsoft.Update.ServiceManager", newUpdateServiceManager},
    {standins::kWebPostProgId, overWin32Host<standins::WebPost>},
    {standins::kUpdateSessionProgId, [] { return standins::newUpdateSession(standins::win32::updateAgentPlace()); }},
    {standins::kUpdateCollProgId, [] { return standins::newUpdateCollection(); }},
    {standins::kAgentInfoProgId, [] { return standins::newAgentInfo(standins::win32::updateAgentPlace()); }},
    {"", [] { return standins::newWebProxy(); }, standins::kWebProxyClsid},
    {standins::kJobDownloadProgId, overWin32Host<standins::JobDownload>},
    {standins::kZipProgId, overWin32Host<standins::ZipComponent>},
};

std::string modulePath() {
    char path[MAX_PATH * 2] = "";
    DWORD n = GetModuleFileNameA(g_module, path, sizeof path);
    return std::string(path, n);
}

// The classes this file answers for: all of them under its own name, only
// that DLL's under one of the maker's DLL names.
bool servedHere(const standins::ServedClass& c) {
    const std::string path = modulePath();
    const size_t slash = path.find_last_of("\\/");
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return !standins::isMakerDll(name) || standins::servesClass(name, c);
}

const standins::ServedClass& servedClass(const ClassEntry& e) {
    const standins::ServedClass* c = e.clsid ? standins::findServedClassById(e.clsid) : standins::findServedClass(e.progId);
    if (!c) std::abort();  // a class without its row in served_classes.h: a build mistake
    return *c;
}

CLSID clsidOf(const ClassEntry& e) {
    std::wstring text;
    for (char ch : servedClass(e).clsid) text.push_back(static_cast<wchar_t>(ch));
    CLSID id{};
    CLSIDFromString(text.c_str(), &id);
    return id;
}

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

LONG setString(HKEY parent, const std::string& path, const char* name, const std::string& value) {
    UniqueHKey key;
    LONG r = RegCreateKeyExA(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                             nullptr, key.put(), nullptr);
    if (r != ERROR_SUCCESS) return r;
    return RegSetValueExA(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>(value.size() + 1));
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
    // The string-encryption class has a vtable interface of its own: not a table row.
    if (HRESULT hr = standins::win32::getStringCipherClassObject(clsid, iid, out); hr != CLASS_E_CLASSNOTAVAILABLE)
        return hr;
    for (const ClassEntry& c : kClasses) {
        if (!IsEqualCLSID(clsid, clsidOf(c)) || !servedHere(servedClass(c))) continue;
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
    if (!standins::isMakerDll(path.substr(path.find_last_of("\\/") + 1)) &&
        standins::win32::registerStringCipherClass(path) != S_OK)
        return SELFREG_E_CLASS;
    for (const ClassEntry& c : kClasses) {
        if (!servedHere(servedClass(c))) continue;
        const std::string clsid(servedClass(c).clsid);
        const std::string key = "CLSID\\" + clsid;
        LONG r = setString(HKEY_CLASSES_ROOT, key, nullptr, c.progId);
        if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, key + "\\InprocServer32", nullptr, path);
        if (r == ERROR_SUCCESS)
            r = setString(HKEY_CLASSES_ROOT, key + "\\InprocServer32", "ThreadingModel", "Apartment");
        if (*c.progId) {
            if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, key + "\\ProgID", nullptr, c.progId);
            if (r == ERROR_SUCCESS) r = setString(HKEY_CLASSES_ROOT, c.progId, nullptr, c.progId);
            if (r == ERROR_SUCCESS)
                r = setString(HKEY_CLASSES_ROOT, std::string(c.progId) + "\\CLSID", nullptr, clsid);
        }
        if (r != ERROR_SUCCESS) return SELFREG_E_CLASS;
    }
    return S_OK;
}

HRESULT STDAPICALLTYPE DllUnregisterServer() {
    const std::string path = modulePath();
    if (!standins::isMakerDll(path.substr(path.find_last_of("\\/") + 1))) standins::win32::unregisterStringCipherClass();
    for (const ClassEntry& c : kClasses) {
        if (!servedHere(servedClass(c))) continue;
        RegDeleteTreeA(HKEY_CLASSES_ROOT, ("CLSID\\" + std::string(servedClass(c).clsid)).c_str());
        if (*c.progId) RegDeleteTreeA(HKEY_CLASSES_ROOT, c.progId);
    }
    return S_OK;
}

}  // extern "C"
