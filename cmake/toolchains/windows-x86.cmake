# Cross-compiles for 32-bit Windows with Debian's MinGW-w64 (posix threads):
#   cmake --preset windows-x86
# Built and linked only: no 32-bit Wine is installable here, so there is no
# emulator and the tests are not run.
set(TVBASE_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
