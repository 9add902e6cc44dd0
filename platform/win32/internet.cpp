#include <windows.h>
#include <urlmon.h>

#include "platform/internet.h"
#include "platform/win32/bindings.h"

namespace platform::win32 {

namespace {

// What URLDownloadToFileA saw of the HTTP exchange. The URL library keeps an
// error page or a body cut short as if it were the file (Wine does so for a
// 500 answer and for a connection dropped mid-body); the status and the
// announced length tell them apart.
class TransferWatch final : public IBindStatusCallback, public IHttpNegotiate {
public:
    DWORD httpStatus = 0;
    ULONG received = 0, announced = 0;
    bool ended = false;

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IBindStatusCallback)) {
            *out = static_cast<IBindStatusCallback*>(this);
        } else if (IsEqualIID(iid, IID_IHttpNegotiate)) {
            *out = static_cast<IHttpNegotiate*>(this);
        } else {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    ULONG STDMETHODCALLTYPE Release() override {
        LONG n = InterlockedDecrement(&refs_);
        if (n == 0) delete this;
        return static_cast<ULONG>(n);
    }

    // IBindStatusCallback: only the progress is of interest.
    HRESULT STDMETHODCALLTYPE OnStartBinding(DWORD, IBinding*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetPriority(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OnLowResource(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnProgress(ULONG progress, ULONG progressMax, ULONG status, LPCWSTR) override {
        if (status == BINDSTATUS_DOWNLOADINGDATA || status == BINDSTATUS_ENDDOWNLOADDATA ||
            status == BINDSTATUS_BEGINDOWNLOADDATA) {
            received = progress;
            announced = progressMax;
        }
        if (status == BINDSTATUS_ENDDOWNLOADDATA) ended = true;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnStopBinding(HRESULT, LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetBindInfo(DWORD*, BINDINFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OnDataAvailable(DWORD, DWORD, FORMATETC*, STGMEDIUM*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnObjectAvailable(REFIID, IUnknown*) override { return S_OK; }

    // IHttpNegotiate
    HRESULT STDMETHODCALLTYPE BeginningTransaction(LPCWSTR, LPCWSTR, DWORD, LPWSTR* additional) override {
        if (additional) *additional = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnResponse(DWORD code, LPCWSTR, LPCWSTR, LPWSTR* additional) override {
        if (additional) *additional = nullptr;
        httpStatus = code;
        return S_OK;
    }

    // An answer other than 2xx, or fewer bytes than the server announced.
    bool incomplete() const {
        if (httpStatus != 0 && (httpStatus < 200 || httpStatus > 299)) return true;
        return announced > 0 && received < announced;
    }

private:
    ~TransferWatch() = default;
    LONG refs_ = 1;
};

class Win32Internet final : public Internet {
public:
    int32_t urlDownloadToFile(const std::string& url, const std::string& path) override {
        auto* watch = new TransferWatch();
        HRESULT hr = URLDownloadToFileA(nullptr, url.c_str(), path.c_str(), 0, watch);
        if (SUCCEEDED(hr) && watch->incomplete()) {
            // What arrived is not the file: it is not left for a later pass to take.
            DeleteFileA(path.c_str());
            hr = static_cast<HRESULT>(inet::DownloadFailure);
        }
        watch->Release();
        return static_cast<int32_t>(hr);
    }
};

}  // namespace

std::unique_ptr<Internet> newInternet() { return std::make_unique<Win32Internet>(); }

}  // namespace platform::win32
