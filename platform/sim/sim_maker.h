// The maker's DLLs on the simulated machine: the stand-in cipher, unless
// machine.ini [Classes] says KEncDec is missing or does not load.
#pragma once

#include "platform/maker.h"

namespace platform::sim {

struct MachineConfig;

class SimMaker : public MakerLibraries {
public:
    explicit SimMaker(const MachineConfig& config) : config_(config) {}
    int32_t encryptData(std::string& buffer, int32_t length) override;
    int32_t decryptData(std::string& buffer, int32_t length) override;

private:
    void checkLoadable() const;
    const MachineConfig& config_;
};

}  // namespace platform::sim
