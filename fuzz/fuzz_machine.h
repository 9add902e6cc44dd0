// What every harness shares: a registered agent's simulated machine in a
// scratch folder, opened afresh for each input (so each input starts from a
// reset pass state), and the input as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/errors.h"
#include "support/test_machine.h"

namespace kpmfuzz {

// The machine, created on first use; open() has already run for this input,
// with the install path and the activity log set up as after start-up.
kpmtest::TestMachine& openMachine();

// Runs a step of the pass; ending the pass (CloseAll) is one of its answers.
template <class F>
void step(F&& f) {
    try {
        f();
    } catch (const platform::ProcessEnd&) {
    }
}

inline std::string text(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

}  // namespace kpmfuzz
