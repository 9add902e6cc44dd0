// EncDecXML: a whole file through the maker's KEncDec cipher, into memory.
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "webpost/site_config.h"

namespace kpm {

std::string EncDecXML(bool encrypt, const std::string& path) {
    try {
        std::string text = platform::files().readAll(path);
        // An empty file has nothing for the text stream to read.
        if (text.empty()) throw platform::ComError(62, "KPMDwld", "Input past end of file");

        // The block size is the text's length plus 512, so the whole text is
        // always one block; kept that way rather than given a real block size.
        const size_t blockLength = text.size() + 512;
        std::string result;
        for (size_t start = 0; start < text.size(); start += blockLength) {
            std::string block = text.substr(start, blockLength);
            const auto length = static_cast<int32_t>(block.size());
            if (encrypt)
                platform::maker().encryptData(block, length);
            else
                platform::maker().decryptData(block, length);
            result += block;
        }
        WriteW3CLog("ModComman", "EncDecXML", "INFO",
                    encrypt ? "File encrypted successfully." : "File decrypted successfully.");
        return result;
    } catch (const std::exception& e) {
        ErrInfo info = errFrom(e);
        WriteW3CLog("ModComman", "EncDecXML", "ERROR", std::to_string(info.number), info.description,
                    std::to_string(info.lastDllError));
        runState.ErrorTrail +=
            " File encryption and decryption " + std::to_string(info.number) + "_" + info.description;
        CloseAll();
    }
}

}  // namespace kpm
