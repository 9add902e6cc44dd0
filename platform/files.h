// Files and folders named by Windows paths ("C:\Program Files\X\a.txt"):
// drive letters, backslashes, names matched case-insensitively. Contents are
// bytes (text in the ANSI code page). Calls that the program makes through the
// runtime's file statements or the file-system object throw ComError with the
// runtime's numbers (53 file not found, 76 path not found, 70 permission
// denied, 61 disk full); the Win32-style calls return false and set the last
// system error.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

class FileSystem {
public:
    virtual ~FileSystem() = default;

    virtual bool fileExists(std::string_view path) = 0;
    virtual bool folderExists(std::string_view path) = 0;
    // FindFirstFileA: anything (file or folder) by that exact name?
    virtual bool findFirst(std::string_view path) = 0;

    // MakeSureDirectoryPathExists: every folder of the path up to its last "\".
    virtual bool makeSureDirectoryPathExists(std::string_view path) = 0;
    // CreateFolder of the file-system object: one level; throws 58 when it
    // exists, 76 when its parent is missing.
    virtual void createFolder(std::string_view path) = 0;

    // FileLen: throws 53 when the file is missing.
    virtual uint64_t fileSize(std::string_view path) = 0;
    // Clears the read-only attribute (SetAttr path, vbNormal). Throws 53.
    virtual void clearReadOnly(std::string_view path) = 0;
    virtual void setReadOnly(std::string_view path, bool readOnly) = 0;
    // Kill / DeleteFileA: throws 53 when missing, 75 when read-only.
    virtual void deleteFile(std::string_view path) = 0;
    // DeleteFolder(path, force): the folder and everything in it. Throws 76.
    virtual void deleteFolder(std::string_view path) = 0;
    // MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING): puts a finished file
    // in place under its name at once. Throws 53 when `from` is missing, 70
    // when `to` is read-only.
    virtual void moveFile(std::string_view from, std::string_view to) = 0;
    // The SHA-256 of a file as 64 lower-case hex digits, read block by block
    // (CryptoAPI on Windows). Throws 53 when the file is missing.
    virtual std::string sha256(std::string_view path) = 0;

    // Whole-file text access. readAll throws 53; the writers throw 76 when the
    // folder is missing, 70 when the file is read-only, 61 when the disk is full.
    virtual std::string readAll(std::string_view path) = 0;
    virtual void writeAll(std::string_view path, std::string_view bytes) = 0;  // create/overwrite
    virtual void append(std::string_view path, std::string_view bytes) = 0;    // open-append-close

    // The names of the files (not folders) in a folder, as the file-system
    // object's Folder.Files lists them, sorted by name. Throws 76 when the
    // folder is missing.
    virtual std::vector<std::string> listFiles(std::string_view folder) = 0;

    // GetShortPathNameA into buffer[0 .. size); returns the length of the short
    // path, the size needed (including the NUL) when it does not fit, 0 when
    // the path does not exist.
    virtual uint32_t getShortPathName(std::string_view longPath, std::string& buffer,
                                      uint32_t size) = 0;

    // GetDiskFreeSpaceExA on a drive root ("C:\"). False when there is no such drive.
    virtual bool diskFreeSpace(std::string_view root, uint64_t& freeToCaller, uint64_t& total,
                               uint64_t& totalFree) = 0;
};

}  // namespace platform
