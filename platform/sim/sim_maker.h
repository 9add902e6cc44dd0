// The maker's DLLs on the simulated machine, over the stand-ins:
//   KEncDec     the stand-in cipher, unless machine.ini [Classes] says
//               KEncDec is missing or does not load;
//   KDowFile.dll, KGnMD5.dll
//               loadable while a file of that name is in the program's
//               folder (as LoadLibrary finds a DLL beside the executable);
//               the background downloads of standins/async_downloads.h and
//               the MD5 of standins/md5.h.
#pragma once

#include <memory>

#include "platform/maker.h"

namespace standins {
class AsyncDownloads;
class StandinHost;
}  // namespace standins

namespace platform::sim {

struct MachineState;
class SimFiles;

class SimMaker : public MakerLibraries {
public:
    SimMaker(MachineState& state, SimFiles& files, std::shared_ptr<standins::StandinHost> host);
    ~SimMaker() override;

    int32_t encryptData(std::string& buffer, int32_t length) override;
    int32_t decryptData(std::string& buffer, int32_t length) override;
    int32_t asyncDownloadFile(const std::string& url, const std::string& destination) override;
    int32_t getDownloadFinalStatus(int32_t job, int64_t& bytesReceived) override;
    bool kGetMD5(const std::string& path, std::string& md5) override;
    bool kGetMD5WBlock(const std::string& path, std::string& md5) override;

private:
    void checkLoadable() const;
    // Throws 53 "File not found: <name>" when the DLL is not beside the program.
    void requireLibrary(const char* fileName) const;
    bool md5(const std::string& path, size_t block, std::string& out) const;

    MachineState& state_;
    SimFiles& files_;
    std::shared_ptr<standins::StandinHost> host_;
    std::unique_ptr<standins::AsyncDownloads> downloads_;
};

}  // namespace platform::sim
