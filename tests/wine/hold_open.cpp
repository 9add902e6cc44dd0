// Another process holding files open, as an editor, a backup or a virus
// scanner does on Windows (built with MinGW-w64, no project code):
//   hold_open READY RELEASE FILE...
// opens each existing FILE for reading and writing without sharing, creates
// READY once every handle is held, and keeps them until RELEASE exists (at
// most two minutes, so a test that dies never leaves a holder behind).
// Exit code: 0 released, 1 a FILE could not be opened, 2 usage, 3 timed out.
#include <windows.h>

#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("usage: hold_open READY RELEASE FILE...\n", stderr);
        return 2;
    }
    std::vector<HANDLE> held;
    for (int i = 3; i < argc; ++i) {
        HANDLE h = CreateFileA(argv[i], GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h == INVALID_HANDLE_VALUE) {
            std::fprintf(stderr, "hold_open: cannot open %s (error %lu)\n", argv[i], GetLastError());
            return 1;
        }
        held.push_back(h);
    }
    HANDLE ready = CreateFileA(argv[1], GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (ready == INVALID_HANDLE_VALUE) return 1;
    CloseHandle(ready);

    int rc = 3;
    for (int waited = 0; waited < 120000; waited += 100) {
        if (GetFileAttributesA(argv[2]) != INVALID_FILE_ATTRIBUTES) {
            rc = 0;
            break;
        }
        Sleep(100);
    }
    for (HANDLE h : held) CloseHandle(h);
    return rc;
}
