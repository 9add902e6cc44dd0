#include "platform/sim/sim_maker.h"

#include <algorithm>

#include "platform/errors.h"
#include "platform/maker_exports.h"
#include "platform/sim/sim_config.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_state.h"
#include "standins/async_downloads.h"
#include "standins/cipher.h"
#include "standins/md5.h"

namespace platform::sim {

namespace {
constexpr int32_t kDllLoadError = 48;  // the runtime's "Error in loading DLL"
// What LoadLibrary leaves as the last error: no such module, not a valid image.
constexpr uint32_t kModNotFound = 126;
constexpr uint32_t kBadExeFormat = 193;
}  // namespace

SimMaker::SimMaker(MachineState& state, SimFiles& files, std::shared_ptr<standins::StandinHost> host)
    : state_(state), files_(files), host_(std::move(host)),
      downloads_(std::make_unique<standins::AsyncDownloads>(host_)) {}

SimMaker::~SimMaker() = default;

void SimMaker::checkLoadable() const {
    switch (state_.config.classState("KEncDec")) {
    case ClassState::Missing:
        state_.lastError = kModNotFound;
        throw ComError(err::FileNotFound, "KPMDwld", "File not found: KEncDec");
    case ClassState::BadModule:
        state_.lastError = kBadExeFormat;
        throw ComError(kDllLoadError, "KPMDwld", "Error in loading DLL");
    case ClassState::Normal: break;
    }
}

int32_t SimMaker::encryptData(std::string& buffer, int32_t length) {
    checkLoadable();
    standins::cipherEncrypt(buffer, static_cast<size_t>(std::max(length, 0)));
    return 1;
}

int32_t SimMaker::decryptData(std::string& buffer, int32_t length) {
    checkLoadable();
    standins::cipherDecrypt(buffer, static_cast<size_t>(std::max(length, 0)));
    return 1;
}

void SimMaker::requireLibrary(const char* fileName) const {
    const std::string& exe = state_.config.exePath;
    const std::string path = exe.substr(0, exe.find_last_of('\\') + 1) + fileName;
    if (!files_.fileExists(path)) {
        state_.lastError = kModNotFound;
        throw ComError(err::FileNotFound, "KPMDwld", std::string("File not found: ") + fileName);
    }
}

int32_t SimMaker::asyncDownloadFile(const std::string& url, const std::string& destination) {
    requireLibrary(maker_exports::kDownloadLibrary);
    return static_cast<int32_t>(downloads_->start(url, destination));
}

int32_t SimMaker::getDownloadFinalStatus(int32_t job, int64_t& bytesReceived) {
    requireLibrary(maker_exports::kDownloadLibrary);
    long long bytes = 0;
    // Sleeps take no real time here, so the query waits for the transfer to move.
    long status = downloads_->status(job, bytes, state_.config.pollWaitMs);
    bytesReceived = bytes;
    return static_cast<int32_t>(status);
}

bool SimMaker::md5(const std::string& path, size_t block, std::string& out) const {
    requireLibrary(maker_exports::kChecksumLibrary);
    std::string readable = host_->readablePath(path);
    std::string error;
    return !readable.empty() && standins::md5File(readable, block, out, error);
}

bool SimMaker::kGetMD5(const std::string& path, std::string& md5Text) { return md5(path, 0, md5Text); }

bool SimMaker::kGetMD5WBlock(const std::string& path, std::string& md5Text) {
    return md5(path, maker_exports::kDefaultMd5Block, md5Text);
}

}  // namespace platform::sim
