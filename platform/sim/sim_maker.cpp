#include "platform/sim/sim_maker.h"

#include <algorithm>

#include "platform/errors.h"
#include "platform/sim/sim_config.h"
#include "standins/cipher.h"

namespace platform::sim {

namespace {
constexpr int32_t kDllLoadError = 48;  // the runtime's "Error in loading DLL"
}

void SimMaker::checkLoadable() const {
    switch (config_.classState("KEncDec")) {
    case ClassState::Missing: throw ComError(err::FileNotFound, "KPMDwld", "File not found: KEncDec");
    case ClassState::BadModule: throw ComError(kDllLoadError, "KPMDwld", "Error in loading DLL");
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

}  // namespace platform::sim
