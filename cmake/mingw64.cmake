# Cross-compiling for 64-bit Windows with MinGW-w64 (the build that runs under
# wine64: the contract tests and the whole-pass check).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KPM_MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
