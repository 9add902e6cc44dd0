#include "standins/com/string_cipher_com.h"

#include <objbase.h>
#include <olectl.h>

#include <memory>
#include <new>

#include "platform/win32/ansi.h"
#include "platform/win32/com.h"
#include "platform/win32/handles.h"
#include "standins/string_cipher.h"
#include "standins/string_cipher_class.h"

namespace standins::win32 {

// The interface: dual, its first method right after IDispatch's.
struct IStringCipher : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE EncryptString(BSTR text, BSTR* encrypted) = 0;
};

namespace {

using platform::win32::ComPtr;

GUID guidOf(const char* text) {
    GUID g{};
    std::wstring wide = platform::win32::toWide(text);
    CLSIDFromString(wide.c_str(), &g);
    return g;
}

const IID& stringCipherIid() {
    static const GUID iid = guidOf(kStringCipherIid);
    return iid;
}

// The vtable method itself; IDispatch goes to an adapter over the same
// stand-in object, so a late-bound caller gets the same answer.
class StringCipherObject final : public platform::win32::ComObject<IStringCipher> {
public:
    StringCipherObject()
        : ComObject(stringCipherIid()),
          inner_(ComPtr<IDispatch>::adopt(
              platform::win32::newDispatchAdapter(std::make_shared<StringCipherClass>()))) {}

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override { return inner_->GetTypeInfoCount(n); }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT i, LCID lcid, ITypeInfo** info) override {
        return inner_->GetTypeInfo(i, lcid, info);
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) override {
        return inner_->GetIDsOfNames(iid, names, count, lcid, ids);
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* ei, UINT* argErr) override {
        return inner_->Invoke(id, iid, lcid, flags, params, result, ei, argErr);
    }

    HRESULT STDMETHODCALLTYPE EncryptString(BSTR text, BSTR* encrypted) override {
        if (!encrypted) return E_POINTER;
        *encrypted = nullptr;
        try {
            *encrypted = platform::win32::toBstr(encryptString(platform::win32::fromBstr(text))).release();
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
    }

private:
    ComPtr<IDispatch> inner_;
};

class StringCipherFactory final : public platform::win32::ComObject<IClassFactory> {
public:
    StringCipherFactory() : ComObject(IID_IClassFactory) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        try {
            auto* object = new StringCipherObject();
            HRESULT hr = object->QueryInterface(iid, out);
            object->Release();
            return hr;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

LONG setString(const std::string& path, const char* name, const std::string& value) {
    platform::win32::UniqueHKey key;
    LONG r = RegCreateKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                             nullptr, key.put(), nullptr);
    if (r != ERROR_SUCCESS) return r;
    return RegSetValueExA(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>(value.size() + 1));
}

}  // namespace

HRESULT getStringCipherClassObject(REFCLSID clsid, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(clsid, guidOf(kStringCipherClsid))) return CLASS_E_CLASSNOTAVAILABLE;
    auto* factory = new (std::nothrow) StringCipherFactory();
    if (!factory) return E_OUTOFMEMORY;
    HRESULT hr = factory->QueryInterface(iid, out);
    factory->Release();
    return hr;
}

HRESULT registerStringCipherClass(const std::string& modulePath) {
    const std::string key = std::string("CLSID\\") + kStringCipherClsid;
    LONG r = setString(key, nullptr, "String cipher (KPM stand-in)");
    if (r == ERROR_SUCCESS) r = setString(key + "\\InprocServer32", nullptr, modulePath);
    if (r == ERROR_SUCCESS) r = setString(key + "\\InprocServer32", "ThreadingModel", "Apartment");
    return r == ERROR_SUCCESS ? S_OK : SELFREG_E_CLASS;
}

void unregisterStringCipherClass() {
    RegDeleteTreeA(HKEY_CLASSES_ROOT, (std::string("CLSID\\") + kStringCipherClsid).c_str());
}

}  // namespace standins::win32
