# What both Windows toolchains share; TVBASE_MINGW_TRIPLET names the target.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${TVBASE_MINGW_TRIPLET})
set(CMAKE_C_COMPILER ${TVBASE_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TVBASE_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${TVBASE_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${TVBASE_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The C++ runtime, libgcc and winpthread go into each DLL and program, so that
# nothing of MinGW's own DLLs has to lie beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
# Test programs, and the discovery of their tests, run under Wine with a
# prefix of the build's own and without Wine's own messages.
if(TVBASE_WINE_EMULATOR AND EXISTS ${TVBASE_WINE_EMULATOR})
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_COMMAND} -E env WINEPREFIX=${CMAKE_BINARY_DIR}/wine
    WINEDEBUG=-all ${TVBASE_WINE_EMULATOR})
endif()
