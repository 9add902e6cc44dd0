// Stand-in for the zip component the program unpacks its downloaded lists
// with ("ChilkatZip2.Chilkatzip2"). Late-bound members:
//
//   OpenZip(path)   1 when the archive at the Windows path opened, else 0
//   Unzip(folder)   the number of files unpacked below `folder`, -1 on failure
//   CloseZip()      closes the archive; harmless when none is open
//   LastErrorText   read-only: why the last call failed, "" after a success
//
// Unzip checks every entry name before it writes anything: one name that
// would land outside the folder ("../x", "/x", "C:x", "a\b") and nothing is
// written. Each file is written under a temporary name and put in place only
// when its data and CRC checked out, so a damaged entry leaves no partial file.
#pragma once

#include <memory>
#include <string>

#include "standins/dispatch_base.h"
#include "standins/transfer.h"
#include "standins/zip_archive.h"

namespace standins {

inline constexpr const char* kZipProgId = "ChilkatZip2.Chilkatzip2";

class ZipComponent : public DispatchBase {
public:
    explicit ZipComponent(std::shared_ptr<StandinHost> host);

    // The members' behaviour, callable without going through invoke().
    long openZip(const std::string& windowsPath);
    long unzip(const std::string& windowsFolder);
    void closeZip();
    const std::string& lastErrorText() const { return lastError_; }

private:
    long failWith(std::string text);

    std::shared_ptr<StandinHost> host_;
    std::unique_ptr<ZipReader> reader_;
    std::string zipPath_;
    std::string lastError_;
};

}  // namespace standins
