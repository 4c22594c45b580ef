# Cross build for 64-bit Windows with MinGW-w64 (posix threading variant: the
# win32 one has no std::thread/std::mutex). Programs run through wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(TARVEL_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${TARVEL_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TARVEL_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${TARVEL_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${TARVEL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The C99 printf family of MinGW (for %zu, %lld and the like) instead of the
# system's msvcrt one, in the library's own reports and in format checks.
set(CMAKE_C_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")
set(CMAKE_CXX_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")

# The DLL and the programs carry the C++ runtime and winpthread inside, so
# nothing but system DLLs has to be found next to them (under wine or not).
# -static also takes winpthread from its archive (system DLLs stay imports).
set(TARVEL_MINGW_STATIC_RUNTIME "-static-libgcc -static-libstdc++ -static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${TARVEL_MINGW_STATIC_RUNTIME}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${TARVEL_MINGW_STATIC_RUNTIME}")

# ctest runs the test programs through wine (see wine-run.sh).
find_program(TARVEL_WINE NAMES wine)
if(TARVEL_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
endif()
