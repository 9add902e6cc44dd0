#include "platform/win32/com.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <unordered_set>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/win32/ansi.h"

namespace platform::win32 {

namespace {

std::atomic<long> g_live{0};

// This module's adapters, so that an object of the program's own that comes
// back through COM is used as itself. (A pointer test, not a private
// interface: an adapter of another module, with its own runtime, is a
// foreign COM object to this one.)
// Never destroyed: an adapter may be released during static destruction.
struct AdapterSet {
    std::mutex lock;
    std::unordered_set<const IDispatch*> members;
};
AdapterSet& adapters() {
    static AdapterSet* set = new AdapterSet;
    return *set;
}

constexpr long kFacilityControl = 0xA;  // FACILITY_CONTROL: the runtime's own error numbers

VARIANT_BOOL toVariantBool(bool b) { return b ? VARIANT_TRUE : VARIANT_FALSE; }

// ---- server side -----------------------------------------------------------

class EnumVariant final : public ComObject<IEnumVARIANT> {
public:
    EnumVariant(std::shared_ptr<const std::vector<Variant>> items, size_t pos)
        : ComObject(IID_IEnumVARIANT), items_(std::move(items)), pos_(pos) {
        ++g_live;
    }
    ~EnumVariant() override { --g_live; }


    HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* out, ULONG* fetched) override {
        if (!out) return E_POINTER;
        ULONG n = 0;
        try {
            for (; n < count && pos_ < items_->size(); ++n, ++pos_) {
                VariantInit(&out[n]);
                toVariant((*items_)[pos_], out[n]);
            }
        } catch (...) {
            for (ULONG i = 0; i < n; ++i) VariantClear(&out[i]);
            if (fetched) *fetched = 0;
            return E_OUTOFMEMORY;
        }
        if (fetched) *fetched = n;
        return n == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        size_t left = items_->size() - pos_;
        pos_ += count < left ? count : left;
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        pos_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** out) override {
        if (!out) return E_POINTER;
        *out = new (std::nothrow) EnumVariant(items_, pos_);
        return *out ? S_OK : E_OUTOFMEMORY;
    }

private:
    std::shared_ptr<const std::vector<Variant>> items_;
    size_t pos_;
};

// Writes a callee's value into a caller's by-reference VARIANT of any of the
// types late-bound callers use.
void storeByRef(const VARIANT& ref, const Variant& value) {
    switch (ref.vt & ~VT_BYREF) {
    case VT_VARIANT:
        if (ref.pvarVal) {
            UniqueVariant v;
            toVariant(value, *v.get());
            VariantClear(ref.pvarVal);
            *ref.pvarVal = *v.get();
            VariantInit(v.get());  // ownership moved to the caller's VARIANT
        }
        break;
    case VT_BSTR:
        if (ref.pbstrVal) {
            UniqueBstr b = toBstr(value.toString());
            SysFreeString(*ref.pbstrVal);
            *ref.pbstrVal = b.release();
        }
        break;
    case VT_I4: *ref.plVal = static_cast<LONG>(value.toLong()); break;
    case VT_I2: *ref.piVal = static_cast<SHORT>(value.toLong()); break;
    case VT_BOOL: *ref.pboolVal = toVariantBool(value.toBool()); break;
    case VT_R8: *ref.pdblVal = value.toDouble(); break;
    case VT_DATE: *ref.pdate = value.toOleDate(); break;
    default: break;  // a type no caller of these objects passes: left as it was
    }
}

class DispatchAdapter final : public ComObject<IDispatch> {
public:
    explicit DispatchAdapter(std::shared_ptr<Dispatch> d) : ComObject(IID_IDispatch), d_(std::move(d)) {
        ++g_live;
        std::lock_guard<std::mutex> lock(adapters().lock);
        adapters().members.insert(this);
    }
    ~DispatchAdapter() override {
        --g_live;
        std::lock_guard<std::mutex> lock(adapters().lock);
        adapters().members.erase(this);
    }

    const std::shared_ptr<Dispatch>& inner() const { return d_; }


    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** out) override {
        if (out) *out = nullptr;
        return E_NOTIMPL;
    }

    // Any name is accepted: whether the object has such a member is known
    // only when it is called (then ComError 438 reaches the caller).
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                            DISPID* ids) override {
        if (!names || !ids) return E_POINTER;
        try {
            for (UINT i = 0; i < count; ++i) {
                std::string name = toAnsi(names[i] ? names[i] : L"");
                if (iequals(name, "_NewEnum")) {
                    ids[i] = DISPID_NEWENUM;
                    continue;
                }
                size_t k = 0;
                while (k < names_.size() && !iequals(names_[k], name)) ++k;
                if (k == names_.size()) names_.push_back(std::move(name));
                ids[i] = static_cast<DISPID>(k + 1);
            }
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* ei, UINT*) override {
        try {
            if (result) VariantInit(result);
            DISPPARAMS none{nullptr, nullptr, 0, 0};
            const DISPPARAMS& dp = params ? *params : none;
            if (id == DISPID_NEWENUM) {
                auto items = std::make_shared<const std::vector<Variant>>(d_->enumerate());
                if (result) {
                    result->vt = VT_UNKNOWN;
                    result->punkVal = new EnumVariant(std::move(items), 0);
                }
                return S_OK;
            }
            std::string member;
            if (id != DISPID_VALUE) {
                if (id < 1 || static_cast<size_t>(id) > names_.size()) return DISP_E_MEMBERNOTFOUND;
                member = names_[static_cast<size_t>(id) - 1];
            }
            const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
            CallKind kind = put                            ? CallKind::PropertyPut
                            : flags == DISPATCH_PROPERTYGET ? CallKind::PropertyGet
                                                            : CallKind::Method;
            if (dp.cNamedArgs > (put ? 1u : 0u)) return DISP_E_NONAMEDARGS;
            if (dp.cNamedArgs == 1 && dp.rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)
                return DISP_E_PARAMNOTFOUND;
            if (put && dp.cNamedArgs != 1) return DISP_E_PARAMNOTOPTIONAL;

            // Positional arguments come last-first after the named one (the
            // value of a property put).
            const UINT positional = dp.cArgs - dp.cNamedArgs;
            std::vector<Arg> args;
            args.reserve(dp.cArgs);
            for (UINT i = 0; i < positional; ++i) {
                const VARIANT& v = dp.rgvarg[dp.cArgs - 1 - i];
                args.push_back(Arg{fromVariant(v), (v.vt & VT_BYREF) != 0});
            }
            if (put) args.push_back(Arg{fromVariant(dp.rgvarg[0]), false});

            Variant r = d_->invoke(member, kind, args);

            for (UINT i = 0; i < positional; ++i) {
                const VARIANT& v = dp.rgvarg[dp.cArgs - 1 - i];
                if (v.vt & VT_BYREF) storeByRef(v, args[i].value);
            }
            if (result) toVariant(r, *result);
            return S_OK;
        } catch (const ComError& e) {
            if (result) VariantClear(result);
            if (ei) fillExcepInfo(e, *ei);
            return DISP_E_EXCEPTION;
        } catch (const std::exception& e) {
            if (result) VariantClear(result);
            if (ei) fillExcepInfo(ComError(E_FAIL, "KPMDwld", e.what()), *ei);
            return DISP_E_EXCEPTION;
        } catch (...) {
            return E_UNEXPECTED;
        }
    }

private:
    std::shared_ptr<Dispatch> d_;
    std::vector<std::string> names_;  // DISPID n is names_[n - 1]
};

// ---- client side -----------------------------------------------------------

// Releases the strings an Invoke put into an EXCEPINFO.
struct ExcepInfoStrings {
    EXCEPINFO& e;
    ~ExcepInfoStrings() {
        SysFreeString(e.bstrSource);
        SysFreeString(e.bstrDescription);
        SysFreeString(e.bstrHelpFile);
        e.bstrSource = e.bstrDescription = e.bstrHelpFile = nullptr;
    }
};

// One argument's storage for the duration of a call. A by-reference text is
// passed as VT_BSTR|VT_BYREF (what a caller's String variable is; servers
// declared with BSTR* accept nothing else), any other by-reference value as
// VT_VARIANT|VT_BYREF.
struct ArgSlot {
    UniqueVariant value;
    BSTR text = nullptr;
    bool byRefText = false;
    ArgSlot() = default;
    ArgSlot(const ArgSlot&) = delete;
    ArgSlot& operator=(const ArgSlot&) = delete;
    ~ArgSlot() { SysFreeString(text); }
};

class ComDispatch final : public Dispatch {
public:
    explicit ComDispatch(ComPtr<IDispatch> d) : d_(std::move(d)) {}
    IDispatch* com() const { return d_.get(); }

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) override {
        std::wstring name = toWide(member);
        LPOLESTR names[] = {name.data()};
        DISPID id = 0;
        HRESULT hr = d_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        if (FAILED(hr)) throw errorFromHresult(hr);
        UniqueVariant result;
        call(id, kind, args, result);
        return fromVariant(*result.get());
    }

    std::vector<Variant> enumerate() override {
        UniqueVariant result;
        call(DISPID_NEWENUM, CallKind::Method, {}, result);
        VARIANT& r = *result.get();
        IUnknown* unk = r.vt == VT_UNKNOWN ? r.punkVal : r.vt == VT_DISPATCH ? r.pdispVal : nullptr;
        ComPtr<IEnumVARIANT> items;
        if (!unk || FAILED(unk->QueryInterface(IID_IEnumVARIANT, items.putVoid())))
            throw makeError(err::NoSuchMember);
        std::vector<Variant> out;
        for (;;) {
            UniqueVariant item;
            ULONG fetched = 0;
            HRESULT hr = items->Next(1, item.put(), &fetched);
            if (FAILED(hr)) throw errorFromHresult(hr);
            if (hr != S_OK || fetched != 1) break;
            out.push_back(fromVariant(*item.get()));
        }
        return out;
    }

private:
    void call(DISPID id, CallKind kind, std::span<Arg> args, UniqueVariant& result) {
        const size_t n = args.size();
        std::unique_ptr<ArgSlot[]> slots(new ArgSlot[n]);
        std::vector<VARIANTARG> argv(n);
        for (size_t i = 0; i < n; ++i) {
            ArgSlot& s = slots[i];
            VARIANTARG& a = argv[n - 1 - i];  // DISPPARAMS holds arguments last-first
            VariantInit(&a);
            if (!args[i].byRef) {
                toVariant(args[i].value, *s.value.get());
                a = *s.value.get();  // a view: the slot keeps ownership
            } else if (args[i].value.type() == Variant::Type::String) {
                s.text = toBstr(args[i].value.toString()).release();
                s.byRefText = true;
                a.vt = VT_BYREF | VT_BSTR;
                a.pbstrVal = &s.text;
            } else {
                toVariant(args[i].value, *s.value.get());
                a.vt = VT_BYREF | VT_VARIANT;
                a.pvarVal = s.value.get();
            }
        }
        DISPID putId = DISPID_PROPERTYPUT;
        DISPPARAMS dp{n ? argv.data() : nullptr, nullptr, static_cast<UINT>(n), 0};
        // Reads and calls ask for METHOD | PROPERTYGET, as the runtime does:
        // objects implemented for the runtime's callers may accept nothing
        // else (Wine's WMI objects answer a bare PROPERTYGET with E_NOTIMPL).
        WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET;
        if (kind == CallKind::PropertyPut) {
            dp.rgdispidNamedArgs = &putId;
            dp.cNamedArgs = 1;
            flags = DISPATCH_PROPERTYPUT;
        }
        EXCEPINFO ei{};
        UINT argErr = 0;
        HRESULT hr = d_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &dp,
                                kind == CallKind::PropertyPut ? nullptr : result.put(), &ei, &argErr);
        if (FAILED(hr)) throw errorFromHresult(hr, &ei);
        ExcepInfoStrings release{ei};  // a server may fill it even on success

        for (size_t i = 0; i < n; ++i) {
            if (!args[i].byRef) continue;
            args[i].value = slots[i].byRefText ? Variant(fromBstr(slots[i].text))
                                               : fromVariant(*slots[i].value.get());
        }
    }

    ComPtr<IDispatch> d_;
};

}  // namespace

// ---- conversions -------------------------------------------------------------

Variant fromVariant(const VARIANT& v) {
    if (v.vt == (VT_BYREF | VT_VARIANT)) return v.pvarVal ? fromVariant(*v.pvarVal) : Variant();
    if (v.vt & VT_BYREF) {
        UniqueVariant copy;
        if (FAILED(VariantCopyInd(copy.get(), const_cast<VARIANT*>(&v))))
            throw makeError(err::TypeMismatch);
        return fromVariant(*copy.get());
    }
    switch (v.vt) {
    case VT_EMPTY: return Variant();
    case VT_NULL: return Variant::null();
    case VT_BOOL: return Variant(v.boolVal != VARIANT_FALSE);
    case VT_I1: return Variant(static_cast<int>(v.cVal));
    case VT_UI1: return Variant(static_cast<int>(v.bVal));
    case VT_I2: return Variant(static_cast<int>(v.iVal));
    case VT_UI2: return Variant(static_cast<int>(v.uiVal));
    case VT_I4: return Variant(static_cast<long long>(v.lVal));
    case VT_UI4: return Variant(static_cast<long long>(v.ulVal));
    case VT_INT: return Variant(static_cast<long long>(v.intVal));
    case VT_UINT: return Variant(static_cast<long long>(v.uintVal));
    case VT_I8: return Variant(static_cast<long long>(v.llVal));
    case VT_UI8:
        if (v.ullVal > static_cast<ULONGLONG>(std::numeric_limits<long long>::max()))
            return Variant(static_cast<double>(v.ullVal));
        return Variant(static_cast<long long>(v.ullVal));
    case VT_R4: return Variant(static_cast<double>(v.fltVal));
    case VT_R8: return Variant(v.dblVal);
    case VT_CY: return Variant(static_cast<double>(v.cyVal.int64) / 10000.0);
    case VT_DECIMAL: {
        double d = 0;
        DECIMAL dec = v.decVal;  // some SDKs declare the parameter non-const
        if (FAILED(VarR8FromDec(&dec, &d))) throw makeError(err::Overflow);
        return Variant(d);
    }
    case VT_DATE: return Variant(Variant::DateTag{v.date});
    case VT_BSTR: return Variant(fromBstr(v.bstrVal));
    case VT_ERROR:
        // An omitted optional argument arrives as DISP_E_PARAMNOTFOUND.
        if (v.scode == DISP_E_PARAMNOTFOUND) return Variant();
        return Variant(static_cast<long long>(v.scode));
    case VT_DISPATCH: return Variant(wrapDispatch(v.pdispVal));
    case VT_UNKNOWN: {
        if (!v.punkVal) return Variant();
        ComPtr<IDispatch> d;
        if (FAILED(v.punkVal->QueryInterface(IID_IDispatch, d.putVoid())))
            throw makeError(err::TypeMismatch);
        return Variant(wrapDispatch(d.get()));
    }
    default: throw makeError(err::TypeMismatch);
    }
}

void toVariant(const Variant& v, VARIANT& out) {
    switch (v.type()) {
    case Variant::Type::Empty: out.vt = VT_EMPTY; break;
    case Variant::Type::Null: out.vt = VT_NULL; break;
    case Variant::Type::Bool:
        out.vt = VT_BOOL;
        out.boolVal = toVariantBool(v.toBool());
        break;
    case Variant::Type::Long: {
        long long x = v.toLong();
        if (x >= std::numeric_limits<LONG>::min() && x <= std::numeric_limits<LONG>::max()) {
            out.vt = VT_I4;
            out.lVal = static_cast<LONG>(x);
        } else {
            out.vt = VT_I8;
            out.llVal = x;
        }
        break;
    }
    case Variant::Type::Double:
        out.vt = VT_R8;
        out.dblVal = v.toDouble();
        break;
    case Variant::Type::Date:
        out.vt = VT_DATE;
        out.date = v.toOleDate();
        break;
    case Variant::Type::String:
        out.bstrVal = toBstr(v.toString()).release();
        out.vt = VT_BSTR;
        break;
    case Variant::Type::Object: {
        std::shared_ptr<Dispatch> d = v.dispatch();
        if (auto* c = dynamic_cast<ComDispatch*>(d.get())) {
            out.pdispVal = c->com();
            out.pdispVal->AddRef();
        } else {
            out.pdispVal = newDispatchAdapter(std::move(d));
        }
        out.vt = VT_DISPATCH;
        break;
    }
    }
}

// ---- errors --------------------------------------------------------------------

namespace {

ComError knownError(int32_t number) { return makeError(number); }

ComError automationError(HRESULT hr) {
    std::string description = describeError(hr);
    if (description.empty()) {
        std::string text = systemMessage(static_cast<DWORD>(hr));
        description = text.empty() ? "Automation error" : "Automation error " + text;
    }
    return ComError(hr, "KPMDwld", description);
}

}  // namespace

ComError errorFromHresult(HRESULT hr, EXCEPINFO* ei) {
    if (hr == DISP_E_EXCEPTION && ei) {
        ExcepInfoStrings release{*ei};
        if (ei->pfnDeferredFillIn) ei->pfnDeferredFillIn(ei);
        // Servers fill in one of the two codes.
        int32_t number = ei->scode != 0 ? static_cast<int32_t>(ei->scode) : ei->wCode;
        if (ei->scode != 0 && HRESULT_FACILITY(ei->scode) == kFacilityControl)
            number = HRESULT_CODE(ei->scode);
        std::string description = fromBstr(ei->bstrDescription);
        if (description.empty()) description = describeError(number);
        return ComError(number, fromBstr(ei->bstrSource), description);
    }
    switch (hr) {
    case DISP_E_MEMBERNOTFOUND:
    case DISP_E_UNKNOWNNAME: return knownError(err::NoSuchMember);
    case DISP_E_BADPARAMCOUNT: return knownError(err::WrongArgumentCount);
    case DISP_E_TYPEMISMATCH: return knownError(err::TypeMismatch);
    case DISP_E_OVERFLOW: return knownError(err::Overflow);
    case DISP_E_PARAMNOTOPTIONAL: return ComError(449, "KPMDwld", "Argument not optional");
    case DISP_E_PARAMNOTFOUND: return ComError(448, "KPMDwld", "Named argument not found");
    default: return automationError(hr);
    }
}

ComError creationError(HRESULT hr) {
    switch (hr) {
    case REGDB_E_CLASSNOTREG:
    case CO_E_CLASSSTRING:
    case CO_E_APPNOTFOUND:
    case E_NOINTERFACE: return makeError(err::CannotCreateObject);
    default: return errorFromHresult(hr);
    }
}

void fillExcepInfo(const ComError& e, EXCEPINFO& ei) {
    ei = EXCEPINFO{};
    int32_t n = e.number();
    // The runtime's own numbers (1 .. 65535) travel in FACILITY_CONTROL, as
    // the runtime itself raises them; anything else is already an HRESULT.
    ei.scode = n > 0 && n <= 0xFFFF ? MAKE_HRESULT(SEVERITY_ERROR, kFacilityControl, n)
               : n == 0            ? E_FAIL
                                   : static_cast<SCODE>(n);
    try {
        ei.bstrSource = toBstr(e.source()).release();
        ei.bstrDescription = toBstr(e.description()).release();
    } catch (...) {
        // Out of memory: the number alone still reaches the caller.
    }
}

std::shared_ptr<Dispatch> wrapDispatch(IDispatch* d) {
    if (!d) return nullptr;
    {
        std::lock_guard<std::mutex> lock(adapters().lock);
        if (adapters().members.count(d)) return static_cast<DispatchAdapter*>(d)->inner();
    }
    return std::make_shared<ComDispatch>(ComPtr<IDispatch>::share(d));
}

IDispatch* comPointer(const Dispatch* d) {
    auto* c = dynamic_cast<const ComDispatch*>(d);
    return c ? c->com() : nullptr;
}

IDispatch* newDispatchAdapter(std::shared_ptr<Dispatch> d) { return new DispatchAdapter(std::move(d)); }

long liveComObjects() { return g_live.load(); }

}  // namespace platform::win32
