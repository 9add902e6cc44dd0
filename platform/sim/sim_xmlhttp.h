// The simulated machine's HTTP request object ("Msxml2.ServerXMLHTTP"): real
// requests with libcurl, to the local endpoints machine.ini [Network] names.
#pragma once

#include <cstdint>

#include "platform/automation.h"

namespace platform::sim {

struct MachineConfig;

// The ProgIDs it is registered under.
inline constexpr const char* kServerXmlHttpProgIds[] = {
    "Msxml2.ServerXMLHTTP", "Msxml2.ServerXMLHTTP.3.0", "Msxml2.ServerXMLHTTP.4.0", "Msxml2.ServerXMLHTTP.6.0"};

// What it raises, as Wine's MSXML does: reading an answer that has not come
// (or sending before open), and a request that reaches no server.
constexpr int32_t kXmlHttpNoAnswer = static_cast<int32_t>(0x80004005);       // E_FAIL
constexpr int32_t kXmlHttpCannotConnect = static_cast<int32_t>(0x800C0008);  // INET_E_DOWNLOAD_FAILURE

Object makeServerXmlHttp(const MachineConfig& config);

}  // namespace platform::sim
