// Late-bound COM in both directions:
//  - a client side that presents any IDispatch as a platform::Dispatch
//    (GetIDsOfNames + Invoke, by-reference arguments read back, errors as
//    ComError), used by the automation binding;
//  - a server side that presents any platform::Dispatch as an IDispatch,
//    used when an object of the program's own is handed to COM and by the
//    stand-in COM servers.
// Both sides convert values through fromVariant / toVariant.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>

#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/variant.h"
#include "platform/win32/handles.h"

namespace platform::win32 {

// VARIANT -> Variant, following VT_BYREF. Types the program cannot hold
// (arrays, records) throw ComError 13.
Variant fromVariant(const VARIANT& v);
// Variant -> VARIANT. `out` must be empty (VariantInit or cleared); the caller
// owns the result. Objects that are not COM objects are wrapped in an adapter.
void toVariant(const Variant& v, VARIANT& out);

// The program's error for a failed IDispatch or creation call. For
// DISP_E_EXCEPTION the number, source and description come from `ei`
// (whose strings this releases); numbers raised by automation servers in the
// FACILITY_CONTROL range (0x800A0000 + n) read as n, as the runtime shows them.
ComError errorFromHresult(HRESULT hr, EXCEPINFO* ei = nullptr);
// CreateObject's error for a failed CLSIDFromProgID / CoCreateInstance /
// QueryInterface(IDispatch): a class that is not there, or is no automation
// object, is 429; anything else keeps its HRESULT (a server DLL that cannot
// be loaded is 0x8007007E).
ComError creationError(HRESULT hr);
// The reverse, for servers: the EXCEPINFO that reports `e` to a client.
void fillExcepInfo(const ComError& e, EXCEPINFO& ei);

// Client side: an IDispatch as a platform::Dispatch (null stays null). An
// adapter of this module (see newDispatchAdapter) is unwrapped to the object it carries.
std::shared_ptr<Dispatch> wrapDispatch(IDispatch* d);

// The COM object behind a client-side wrapper made by wrapDispatch (no
// reference added); null for any other Dispatch.
IDispatch* comPointer(const Dispatch* d);

// Server side: a new IDispatch (one reference, the caller's) over `d`.
// Member names get DISPIDs in the order GetIDsOfNames first sees them;
// "_NewEnum" (DISPID_NEWENUM) enumerates through d->enumerate().
IDispatch* newDispatchAdapter(std::shared_ptr<Dispatch> d);

// IUnknown for a server-side object that exposes one interface (and IDispatch
// when that interface is a dual one): starts with one reference (the
// creator's) and deletes itself on its last Release.
template <class Interface>
class ComObject : public Interface {
public:
    explicit ComObject(const IID& iid) : iid_(iid) {}
    virtual ~ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        bool dual = false;
        if constexpr (std::is_base_of_v<IDispatch, Interface>) dual = IsEqualIID(iid, IID_IDispatch);
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, iid_) || dual) {
            *out = static_cast<Interface*>(this);
            this->AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    ULONG STDMETHODCALLTYPE Release() override {
        LONG n = InterlockedDecrement(&refs_);
        if (n == 0) delete this;
        return static_cast<ULONG>(n);
    }

private:
    const IID& iid_;
    LONG refs_ = 1;
};

// Server-side COM objects alive in this module (for DllCanUnloadNow).
long liveComObjects();

}  // namespace platform::win32
