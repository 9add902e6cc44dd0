// The maker's cipher library, KEncDec.dll, as the program calls it. This is
// the one statement of its exports' signature, which the library does not
// publish: the agent's other components declare them as
//
//   long __stdcall EncryptData(char* buffer, long length);
//   long __stdcall DecryptData(char* buffer, long length);
//
// exported undecorated. Each transforms the first `length` bytes of the ANSI
// buffer in place (the result has the same length) and returns a value the
// program ignores. The stand-in KEncDec.dll (standins/com) implements it.
#pragma once

namespace platform::win32 {

using CipherEntry = long(__stdcall*)(char* buffer, long length);

// The library as the program declares it; errors name it so.
constexpr const char* kCipherLibraryName = "KEncDec";
constexpr const char* kEncryptExport = "EncryptData";
constexpr const char* kDecryptExport = "DecryptData";

}  // namespace platform::win32
