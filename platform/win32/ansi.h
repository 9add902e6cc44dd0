// Text conversions between the program's ANSI strings and the system's UTF-16.
// The program's text is in the ANSI code page (CP_ACP) as on the computer it
// runs on; every conversion of the Windows binding goes through here.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>
#include <string_view>

#include "platform/win32/handles.h"

namespace platform::win32 {

std::wstring toWide(std::string_view ansi);
std::string toAnsi(std::wstring_view wide);  // unmappable characters become '?', never a look-alike

UniqueBstr toBstr(std::string_view ansi);  // throws std::bad_alloc when out of memory
std::string fromBstr(BSTR b);               // null reads as ""

// The system's message text for an error code, on one line without the final
// line break ("The system cannot find the file specified.").
std::string systemMessage(DWORD code);

}  // namespace platform::win32
