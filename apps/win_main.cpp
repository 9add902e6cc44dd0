// KPMDwld.exe: one pass of the program on the Windows computer it runs on.
// A GUI-subsystem program that opens no window (the agent's scheduler starts
// it with nobody watching); its exit code is the pass's.
#include <windows.h>

#include <exception>

#include "driver/main.h"
#include "platform/errors.h"
#include "platform/win32/win32_host.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    platform::win32::Win32Host host;
    platform::setHost(&host);
    int exitCode = 0;
    try {
        kpm::Main();
    } catch (const platform::ProcessEnd& end) {
        exitCode = end.exitCode;
    } catch (const std::exception& e) {
        // Every procedure traps its own errors: reaching here is a defect.
        OutputDebugStringA("KPMDwld: unhandled error: ");
        OutputDebugStringA(e.what());
        exitCode = 1;
    }
    platform::setHost(nullptr);
    return exitCode;
}
