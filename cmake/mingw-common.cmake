# Shared by mingw32.cmake and mingw64.cmake (which set KPM_MINGW_TRIPLET).
# The "-posix" compilers use the POSIX thread model, which std::thread and
# std::mutex need in GCC 12's MinGW runtime.
set(CMAKE_C_COMPILER ${KPM_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KPM_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KPM_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KPM_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# One self-contained executable: no libgcc/libstdc++/winpthread DLLs beside it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
# Release binaries ship without symbols.
set(CMAKE_EXE_LINKER_FLAGS_RELEASE_INIT "-s")
set(CMAKE_MODULE_LINKER_FLAGS_RELEASE_INIT "-s")

# Tests run the built programs under Wine: the 64-bit build under wine64, the
# 32-bit one under the 32-bit loader in a 64-bit prefix (as it runs on 64-bit
# Windows). The wrapper finds the build tree's scratch prefix from its working
# directory.
if(KPM_MINGW_TRIPLET STREQUAL "x86_64-w64-mingw32")
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh)
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh --32)
endif()
