#include <windows.h>
#include <objbase.h>

#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/win32/ansi.h"
#include "platform/win32/bindings.h"
#include "platform/win32/com.h"
#include "platform/win32/handles.h"

namespace platform::win32 {

// The shape callFirstMethod expects of an interface: dual, first method right
// after IDispatch's. Outside the anonymous namespace: with internal linkage
// the compiler would see no implementation and turn the call into a pure
// virtual one.
struct FirstStringMethod : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE First(BSTR text, BSTR* result) = 0;
};

namespace {

class Win32Automation final : public Automation {
public:
    // COM stays initialised for the life of the process: objects kept in the
    // program's process-wide records are released during static destruction,
    // after any destructor of this binding has run.
    ~Win32Automation() override = default;

    Object createObject(std::string_view progId) override {
        initialise();
        CLSID clsid;
        std::wstring id = toWide(progId);
        HRESULT hr = CLSIDFromProgID(id.c_str(), &clsid);
        if (FAILED(hr)) throw creationError(hr);
        return create(clsid);
    }

    Object createByClsid(std::string_view clsidText) override {
        initialise();
        CLSID clsid;
        std::wstring id = toWide(clsidText);
        // A malformed identifier names no class.
        if (FAILED(CLSIDFromString(id.c_str(), &clsid))) throw makeError(err::CannotCreateObject);
        return create(clsid);
    }

    std::string callFirstMethod(const Object& object, std::string_view iidText, const std::string& text) override {
        IDispatch* d = comPointer(object.ptr().get());
        if (!d) throw makeError(err::ObjectVariableNotSet);
        IID iid;
        std::wstring id = toWide(iidText);
        if (FAILED(IIDFromString(id.c_str(), &iid))) throw makeError(err::NoExpectedInterface);
        ComPtr<FirstStringMethod> face;
        if (FAILED(d->QueryInterface(iid, face.putVoid())) || !face) throw makeError(err::NoExpectedInterface);
        UniqueBstr in = toBstr(text);
        BSTR out = nullptr;
        HRESULT hr = face->First(in.get(), &out);
        UniqueBstr result(out);
        if (FAILED(hr)) throw errorFromHresult(hr);
        return fromBstr(result.get());
    }

    // GetObject(moniker): parse the display name and bind, as the runtime does.
    Object getObject(std::string_view moniker) override {
        initialise();
        ComPtr<IBindCtx> context;
        HRESULT hr = CreateBindCtx(0, context.put());
        if (FAILED(hr)) throw errorFromHresult(hr);
        std::wstring name = toWide(moniker);
        ULONG eaten = 0;
        ComPtr<IMoniker> mk;
        hr = MkParseDisplayName(context.get(), name.c_str(), &eaten, mk.put());
        if (FAILED(hr)) throw errorFromHresult(hr);
        ComPtr<IDispatch> d;
        hr = mk->BindToObject(context.get(), nullptr, IID_IDispatch, d.putVoid());
        if (FAILED(hr)) throw errorFromHresult(hr);
        return Object(wrapDispatch(d.get()));
    }

private:
    Object create(const CLSID& clsid) {
        ComPtr<IUnknown> unknown;
        HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IUnknown, unknown.putVoid());
        if (FAILED(hr)) throw creationError(hr);
        ComPtr<IDispatch> d;
        hr = unknown.as(IID_IDispatch, d);
        if (FAILED(hr)) throw creationError(hr);
        return Object(wrapDispatch(d.get()));
    }

    void initialise() {
        if (initialised_) return;
        // S_FALSE (already initialised on this thread) is as good.
        HRESULT hr = CoInitialize(nullptr);
        if (FAILED(hr) && hr != RPC_E_CHANGED_MODE) throw errorFromHresult(hr);
        initialised_ = true;
    }

    bool initialised_ = false;
};

}  // namespace

std::unique_ptr<Automation> newAutomation() { return std::make_unique<Win32Automation>(); }

}  // namespace platform::win32
