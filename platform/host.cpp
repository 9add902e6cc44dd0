#include "platform/host.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

namespace {
Host* g_host = nullptr;
}

Host& host() {
    if (!g_host) {
        std::fputs("KPMDwld: no platform binding installed\n", stderr);
        std::abort();
    }
    return *g_host;
}

void setHost(Host* h) { g_host = h; }

bool hasHost() { return g_host != nullptr; }

void endProcess(int exitCode) {
    host().system().endProcess(exitCode);
    throw ProcessEnd{exitCode};  // a binding that returned anyway still ends the pass
}

RegValue RegValue::string(std::string_view s) {
    RegValue v;
    v.type = regtype::String;
    v.data.assign(s.begin(), s.end());
    v.data.push_back(0);
    return v;
}

RegValue RegValue::dword(uint32_t x) {
    RegValue v;
    v.type = regtype::Dword;
    for (int i = 0; i < 4; ++i) v.data.push_back(static_cast<uint8_t>(x >> (8 * i)));
    return v;
}

bool RegValue::isText() const { return type == regtype::String || type == regtype::ExpandString; }

std::string RegValue::text() const {
    std::string s(data.begin(), data.end());
    while (!s.empty() && s.back() == '\0') s.pop_back();
    return s;
}

uint32_t RegValue::dwordValue() const {
    uint32_t n = 0;
    for (size_t i = 0; i < data.size() && i < 4; ++i) n |= uint32_t(data[i]) << (8 * i);
    return n;
}

}  // namespace platform
