# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 (posix threads):
#   cmake --preset windows-x64
# Programs run on Linux through wine64, which CTest uses as the emulator.
set(TVBASE_MINGW_TRIPLET x86_64-w64-mingw32)
set(TVBASE_WINE_EMULATOR /usr/lib/wine/wine64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
