# Cross-compiling for 32-bit Windows with MinGW-w64: the shipping KPMDwld.exe.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(KPM_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
# Each function kept in one piece. With GCC 12's DWARF-2 unwinder (the i686
# exception model), an exception resumed out of a function's split-off cold
# part aborted the process (exit code 3) instead of reaching the procedure's
# own error trap: a status post on a released poster did so under Wine.
set(CMAKE_C_FLAGS_INIT "-fno-reorder-blocks-and-partition")
set(CMAKE_CXX_FLAGS_INIT "-fno-reorder-blocks-and-partition")
