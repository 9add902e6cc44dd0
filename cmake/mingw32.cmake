# Cross-compiling for 32-bit Windows with MinGW-w64: the shipping KPMDwld.exe.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(KPM_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
