// MD5 of a file, for the stand-ins of the maker's KGetMD5 (the whole file
// read at once) and KGetMD5WBlock (read block by block) exports. The digest
// comes from the system's crypto library: OpenSSL's libcrypto on Linux,
// CryptoAPI on Windows.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace standins {

// The MD5 of the file at `readablePath` as 32 lower-case hex digits.
// blockSize 0 reads the whole file into memory and hashes it in one go;
// otherwise the file is read and hashed `blockSize` bytes at a time. Both
// give the same text. False, with a reason, when the file cannot be read.
bool md5File(const std::string& readablePath, size_t blockSize, std::string& hexOut,
             std::string& error);

// The SHA-256 of the file at `readablePath` as 64 lower-case hex digits,
// read block by block (OpenSSL: the simulated machine's files).
bool sha256File(const std::string& readablePath, std::string& hexOut, std::string& error);

// One running MD5, implemented by the platform's backend.
class Md5Hasher {
public:
    virtual ~Md5Hasher() = default;
    virtual bool update(const unsigned char* data, size_t size) = 0;
    // The 16-byte digest; the hasher is spent afterwards.
    virtual bool finish(unsigned char digest[16]) = 0;
};

// Null, with a reason, when the crypto library cannot provide MD5.
std::unique_ptr<Md5Hasher> newMd5Hasher(std::string& error);

}  // namespace standins
