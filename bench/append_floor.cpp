// The floor under Wine (built with MinGW-w64, no project code): what the
// activity log costs at least on Windows.
//   append_floor LOG LINES   appends each line of LINES (CR LF kept) to LOG,
//                            one CreateFileA/WriteFile/CloseHandle each, and
//                            prints the loop's milliseconds
//   append_floor LOG         writes one line and ends: the least a program
//                            does to leave a log entry
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

bool append(const char* path, const std::string& line) {
    HANDLE h = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const bool ok = WriteFile(h, line.data(), static_cast<DWORD>(line.size()), &written, nullptr) != 0;
    CloseHandle(h);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2) return append(argv[1], "11/15/2026 16:10:00\tmodMain\tMain\tINFO\t5.0.19\t\t\t\r\n") ? 0 : 1;
    if (argc != 3) {
        std::fputs("usage: append_floor LOG [LINES]\n", stderr);
        return 2;
    }
    std::vector<std::string> lines;
    if (FILE* in = std::fopen(argv[2], "rb")) {
        std::string line;
        for (int c; (c = std::fgetc(in)) != EOF;) {
            line += static_cast<char>(c);
            if (c == '\n') lines.push_back(std::move(line)), line.clear();
        }
        std::fclose(in);
    }
    LARGE_INTEGER f, a, b;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&a);
    for (const std::string& line : lines)
        if (!append(argv[1], line)) return 1;
    QueryPerformanceCounter(&b);
    std::printf("%zu lines %.1f ms\n", lines.size(), 1000.0 * static_cast<double>(b.QuadPart - a.QuadPart) / f.QuadPart);
    return 0;
}
