// Stand-in for the maker's string-encryption class, which the program knows
// only by its class identifier and the identifier of its interface. The
// interface is dual (derived from IDispatch); its first method, right after
// IDispatch's, is
//
//   HRESULT EncryptString([in] BSTR text, [out, retval] BSTR* encrypted);
//
// also reachable late-bound under that name. The encryption is
// standins/string_cipher.h.
#pragma once

#include "standins/dispatch_base.h"

namespace standins {

inline constexpr const char* kStringCipherClsid = "{88565CBB-406B-431F-BE79-66F8E3F67490}";
inline constexpr const char* kStringCipherIid = "{ACCB0845-EFBD-44F9-BF6B-025DDF631166}";
inline constexpr const char* kStringCipherFirstMethod = "EncryptString";

class StringCipherClass : public DispatchBase {
public:
    StringCipherClass();
};

}  // namespace standins
