// Text across the simulated DOM's edge, as MSXML has it: a file's bytes are
// decoded by its byte order mark or declared encoding; everything the program
// passes in or reads out is its ANSI text (MSXML speaks UTF-16, which the
// Windows binding converts). Inside, the tree is UTF-8.
#pragma once

#include <memory>
#include <string>

#include "platform/automation.h"
#include "platform/sim/sim_code_page.h"

namespace platform::sim {

// A document file's bytes as UTF-8. False, with MSXML's reason, for an
// encoding it does not read or bytes that are not in the one declared.
bool decodeXmlBytes(const std::string& bytes, std::string& utf8, std::string& reason);

// The DOM object seen through the program's code page: string arguments (but
// Load's file name, which the machine's files take as they are) and string
// results converted, objects it hands out wrapped alike. `codePage` must
// outlive it.
std::shared_ptr<Dispatch> withAnsiText(std::shared_ptr<Dispatch> dom, const CodePage& codePage);

}  // namespace platform::sim
