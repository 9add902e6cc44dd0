#include "platform/win32/ansi.h"

#include <new>

namespace platform::win32 {

std::wstring toWide(std::string_view ansi) {
    if (ansi.empty()) return {};
    int n = MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), out.data(), n);
    return out;
}

std::string toAnsi(std::wstring_view wide) {
    if (wide.empty()) return {};
    // No best fit: a character the code page lacks becomes '?', not a
    // look-alike (U+FF0F, a full-width solidus, would become '/'). A computer
    // whose ANSI code page is UTF-8 takes no flags and needs none.
    const DWORD flags = GetACP() == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS;
    int n = WideCharToMultiByte(CP_ACP, flags, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                nullptr, nullptr);
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_ACP, flags, wide.data(), static_cast<int>(wide.size()), out.data(), n,
                        nullptr, nullptr);
    return out;
}

UniqueBstr toBstr(std::string_view ansi) {
    std::wstring w = toWide(ansi);
    BSTR b = SysAllocStringLen(w.data(), static_cast<UINT>(w.size()));
    if (!b) throw std::bad_alloc();
    return UniqueBstr(b);
}

std::string fromBstr(BSTR b) {
    if (!b) return {};
    return toAnsi(std::wstring_view(b, SysStringLen(b)));
}

std::string systemMessage(DWORD code) {
    char* text = nullptr;
    DWORD n = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                 FORMAT_MESSAGE_IGNORE_INSERTS,
                             nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string s = n && text ? std::string(text, n) : std::string();
    if (text) LocalFree(text);
    while (!s.empty() && (s.back() == '\r' || s.back() == '\n' || s.back() == ' ')) s.pop_back();
    for (char& c : s)
        if (c == '\r' || c == '\n') c = ' ';
    return s;
}

}  // namespace platform::win32
