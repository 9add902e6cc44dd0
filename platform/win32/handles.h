// Owners for the system's handles and COM's resources, so that no early
// return or exception leaks one. Header-only and free of compiler extensions:
// the same file builds with MinGW and MSVC.
#pragma once

#include <windows.h>
#include <oleauto.h>
#include <unknwn.h>

#include <utility>

namespace platform::win32 {

// A resource with one release function and one "none" value.
template <class T, class Traits>
class Unique {
public:
    Unique() = default;
    explicit Unique(T v) : v_(v) {}
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;
    Unique(Unique&& o) noexcept : v_(std::exchange(o.v_, Traits::none())) {}
    Unique& operator=(Unique&& o) noexcept {
        if (this != &o) reset(std::exchange(o.v_, Traits::none()));
        return *this;
    }
    ~Unique() { reset(); }

    T get() const { return v_; }
    T* put() {  // for out-parameters: releases what was held first
        reset();
        return &v_;
    }
    T release() { return std::exchange(v_, Traits::none()); }
    void reset(T v = Traits::none()) {
        if (v_ != Traits::none()) Traits::close(v_);
        v_ = v;
    }
    explicit operator bool() const { return v_ != Traits::none(); }

private:
    T v_ = Traits::none();
};

struct HandleTraits {  // kernel objects: processes, threads, mutexes, files
    static HANDLE none() { return nullptr; }
    static void close(HANDLE h) { CloseHandle(h); }
};
struct FileHandleTraits {  // CreateFileA reports failure as INVALID_HANDLE_VALUE
    static HANDLE none() { return INVALID_HANDLE_VALUE; }
    static void close(HANDLE h) { CloseHandle(h); }
};
struct FindHandleTraits {
    static HANDLE none() { return INVALID_HANDLE_VALUE; }
    static void close(HANDLE h) { FindClose(h); }
};
struct RegKeyTraits {
    static HKEY none() { return nullptr; }
    static void close(HKEY k) { RegCloseKey(k); }
};
struct ModuleTraits {
    static HMODULE none() { return nullptr; }
    static void close(HMODULE m) { FreeLibrary(m); }
};
struct BstrTraits {
    static BSTR none() { return nullptr; }
    static void close(BSTR b) { SysFreeString(b); }
};

using UniqueHandle = Unique<HANDLE, HandleTraits>;
using UniqueFile = Unique<HANDLE, FileHandleTraits>;
using UniqueFind = Unique<HANDLE, FindHandleTraits>;
using UniqueHKey = Unique<HKEY, RegKeyTraits>;
using UniqueModule = Unique<HMODULE, ModuleTraits>;
using UniqueBstr = Unique<BSTR, BstrTraits>;

// A counted reference to a COM interface.
template <class I>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    // Takes over a reference the caller already owns (an out-parameter's).
    static ComPtr adopt(I* p) {
        ComPtr r;
        r.p_ = p;
        return r;
    }
    // Adds a reference of its own.
    static ComPtr share(I* p) {
        if (p) p->AddRef();
        return adopt(p);
    }
    ComPtr(const ComPtr& o) : p_(o.p_) {
        if (p_) p_->AddRef();
    }
    ComPtr(ComPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    ComPtr& operator=(ComPtr o) noexcept {
        std::swap(p_, o.p_);
        return *this;
    }
    ~ComPtr() { reset(); }

    I* get() const { return p_; }
    I* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    I** put() {
        reset();
        return &p_;
    }
    void** putVoid() { return reinterpret_cast<void**>(put()); }
    I* detach() { return std::exchange(p_, nullptr); }
    void reset() {
        if (p_) std::exchange(p_, nullptr)->Release();
    }

    // QueryInterface into another smart pointer; the HRESULT of the call.
    template <class J>
    HRESULT as(const IID& iid, ComPtr<J>& out) const {
        if (!p_) return E_POINTER;
        return p_->QueryInterface(iid, out.putVoid());
    }

private:
    I* p_ = nullptr;
};

// A VARIANT that is cleared when it goes.
class UniqueVariant {
public:
    UniqueVariant() { VariantInit(&v_); }
    UniqueVariant(const UniqueVariant&) = delete;
    UniqueVariant& operator=(const UniqueVariant&) = delete;
    UniqueVariant(UniqueVariant&& o) noexcept {
        v_ = o.v_;
        VariantInit(&o.v_);
    }
    ~UniqueVariant() { VariantClear(&v_); }

    VARIANT* get() { return &v_; }
    const VARIANT* get() const { return &v_; }
    VARIANT* put() {  // cleared, ready to be filled
        VariantClear(&v_);
        return &v_;
    }

private:
    VARIANT v_;
};

// The DLL or executable this code is linked into, for finding its own file.
HMODULE thisModule();

}  // namespace platform::win32
