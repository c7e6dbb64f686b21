# Builds for Windows x86-64 on Linux with mingw-w64's GCC with POSIX threads. Programs run under Wine.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(mingw x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${mingw}-gcc-posix)
set(CMAKE_CXX_COMPILER ${mingw}-g++-posix)
set(CMAKE_RC_COMPILER ${mingw}-windres)
set(CMAKE_DLLTOOL ${mingw}-dlltool)
set(CMAKE_OBJDUMP ${mingw}-objdump)

# Finds no libraries of the build system, only those under the caller's prefixes and these.
file(TO_CMAKE_PATH "$ENV{CMAKE_PREFIX_PATH}" prefixes)
list(APPEND CMAKE_FIND_ROOT_PATH ${CMAKE_PREFIX_PATH} ${prefixes}
  /usr/${mingw} ${CMAKE_CURRENT_LIST_DIR}/../../.deps/windows-x86_64)
list(REMOVE_DUPLICATES CMAKE_FIND_ROOT_PATH)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(TARSIO_WINE NAMES wine)
if(TARSIO_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../../tools/run_under_wine.sh")
endif()
