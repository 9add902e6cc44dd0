// KPMStandins.dll's string-encryption class (standins/string_cipher_class.h):
// a COM object with the dual interface the program calls through its first
// method, created by class identifier only (no ProgID).
#pragma once

#include <windows.h>

#include <string>

namespace standins::win32 {

// DllGetClassObject for the class's identifier: CLASS_E_CLASSNOTAVAILABLE for any other.
HRESULT getStringCipherClassObject(REFCLSID clsid, REFIID iid, void** out);
// HKCR\CLSID\{...}\InprocServer32 = `modulePath` (apartment-threaded); and its removal.
HRESULT registerStringCipherClass(const std::string& modulePath);
void unregisterStringCipherClass();

}  // namespace standins::win32
